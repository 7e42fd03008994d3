#include "definitions/function_def.hpp"

#include <utility>

#include <pugixml.hpp>

#include <halvtiv/data_types.hpp>

#include "foundation/guarded.hpp"
#include "foundation/xml_utils.hpp"
#include "platform/run_time_error.hpp"
#include "platform/text.hpp"
#include "platform/xml_reader.hpp"
#include "platform/xml_writer.hpp"

namespace halvtiv {

namespace {

[[noreturn]] void Raise(std::string message) {
    throw OwnError("clsZorbFunctionDef", std::move(message));
}

/// The first child element of that name with a "name" that is not empty.
pugi::xml_node NamedChild(const pugi::xml_node& parent, const char* elementName) {
    for (const pugi::xml_node child : parent.children(elementName)) {
        if (!GetXmlAttribute(child, "name").empty()) return child;
    }
    return {};
}

std::string MarkupOf(const pugi::xml_node& node) {
    platform::TextBuffer xml(512);
    if (!platform::AppendXmlNode(xml, node))
        platform::RaiseRunTimeError(platform::RunTimeError::InvalidArgument);
    return xml.ToString();
}

std::string_view Trimmed(std::string_view text) {
    return platform::TrimBlanks(text);
}

}  // namespace

bool clsZorbFunctionDef::Parse(std::string_view xml) {
    return Succeeds(errors_, [&] { Read(xml); });
}

bool clsZorbFunctionDef::CompileFunction(ZorbFunctionCall& call) {
    return Succeeds(errors_, [&] { Compile(call); });
}

void clsZorbFunctionDef::Reset() {
    functionName_.clear();
    paramDefs_.Reset();
    functionBody_.Reset();
}

void clsZorbFunctionDef::Read(std::string_view xml) {
    pugi::xml_document document;
    if (!platform::LoadXmlText(xml, document)) Raise("Load function definition error.");
    const pugi::xml_node root = document.document_element();

    functionName_ = Trimmed(GetXmlAttribute(root, "name"));
    if (functionName_.empty()) Raise("No function name defined.");

    for (const pugi::xml_node paramDef : root.children("paramdef")) {
        for (const pugi::xml_node param : paramDef.children("param")) {
            if (GetXmlAttribute(param, "name").empty()) continue;
            const std::string_view name = Trimmed(GetXmlAttribute(param, "name"));
            const std::int32_t type = DataTypeFromName(Trimmed(GetXmlAttribute(param, "type")));
            if (type == QORV_STOCKDT_UNKNOWN || type == QORV_STOCKDT_BINARY) {
                Raise("Invalid data type defined for parameter - \"" + std::string(name) + "\".");
            }
            paramDefs_.Add(name, Trimmed(GetXmlAttributeOrText(param, "value")), type,
                           Trimmed(GetXmlAttributeOrText(param, "extra")));
        }
    }

    const pugi::xml_node body = NamedChild(root, "function");
    if (!body) Raise("No function body defined.");
    functionBodyText_ = MarkupOf(body);
    if (!functionBody_.Parse(functionBodyText_)) {
        try {
            functionBody_.RaiseLastError();
        } catch (const ErrorInfo& error) {
            Raise("Invalid function body(" + error.Description + ").");
        }
    }
}

}  // namespace halvtiv
