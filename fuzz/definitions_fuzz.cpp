// Definition files in any encoding, and calls of what they define.

#include <array>
#include <string>

#include "definitions/function_def_library.hpp"
#include "platform/xml_reader.hpp"
#include "property.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace halvtiv;
    const auto [value, bytes] = fuzz::FirstLineAndRest(fuzz::TextOf(data, size));
    constexpr std::array<std::string_view, 1> kBuiltIn{"public.getdata"};
    clsZorbFunctionDefLibrary library(kBuiltIn);
    pugi::xml_document document;
    std::string text;
    std::string report;
    if (!platform::LoadXmlFileBytes(bytes, document) || !platform::DecodeXmlFileBytes(bytes, text)) {
        return 0;
    }
    if (!library.LoadFunctionDefsXml(text, report)) return 0;
    fuzz::Require(!report.empty(), "loading leaves no report");
    for (const auto definition : document.document_element().children()) {
        const std::string_view name = definition.attribute("name").value();
        const auto loaded = library.GetItemByName(name);
        if (!loaded) continue;
        fuzz::Require(library.IsBuildInFunction(loaded->FunctionBase()), "a definition has no base");
        for (const char* database : {"", "SQLite", "MariaDB"}) {
            ZorbFunctionCall call;
            call.FunctionName(name);
            for (const auto parameter : definition.child("paramdef").children()) {
                call.AddParam(parameter.attribute("name").value(), value);
            }
            if (library.CompileFunction(call, database)) {
                fuzz::Require(library.IsBuildInFunction(call.FunctionName()), "a call has no base");
            } else {
                fuzz::Require(!library.GetLastError().empty(), "a refusal has no reason");
            }
        }
    }
    return 0;
}
