#include "export_request.hpp"

#include <algorithm>
#include <array>
#include <halvtiv/halvtiv.hpp>
#include <halvtiv_exporters/exporters.hpp>
#include <pugixml.hpp>

#include "command_error.hpp"
#include "platform/text.hpp"
#include "platform/text_buffer.hpp"
#include "platform/xml_reader.hpp"
#include "platform/xml_writer.hpp"

namespace halvtiv::cli {
namespace {

constexpr const char* kExport = "public.getdatatoexportfile";

bool IsExportable(std::string_view base) {
    constexpr std::array<std::string_view, 3> kReaders{"public.getdata", "public.getdatatofile", kExport};
    return std::any_of(kReaders.begin(), kReaders.end(),
                       [base](std::string_view reader) { return platform::EqualIgnoringCase(base, reader); });
}

bool IsBuiltIn(std::string_view name) {
    constexpr std::string_view kBuiltIn = "public.";
    return platform::EqualIgnoringCase(name.substr(0, kBuiltIn.size()), kBuiltIn);
}

void SetParam(ZorbFunctionCall& call, std::string_view name, std::string_view value) {
    std::string found, ignored;
    std::int32_t type = 0;
    for (std::int32_t index = 1; index <= call.ParamCount(); ++index) {
        if (!call.GetParamInfo(index, found, ignored, type, ignored)) break;
        if (!platform::EqualIgnoringCase(found, name)) continue;
        if (!call.SetParam(index, value)) throw CommandError(ExitStatus::NotRun, call.GetLastError());
        return;
    }
    if (call.AddParam(name, value) < 0) throw CommandError(ExitStatus::NotRun, call.GetLastError());
}

/// The export type of a file by its name; raises for one that no exporter writes.
std::string ExportTypeFor(const std::string& file) {
    if (const IZorbDataExporterPtr exporter = exporters::ExporterForFile(file)) {
        return exporter->ExportTypeString();
    }
    throw CommandError(
        ExitStatus::NotRun,
        "Cannot tell a format from the name " + file +
            ": it is to end in .csv, .tsv, .tab, .xlsx, .jsonl, .ndjson, .sqlite, .sqlite3 or .db.");
}

}  // namespace

ExportedFunction::ExportedFunction(const Options& options, std::string_view requestXml) {
    ZorbFunctionCall call;
    if (!call.Parse(requestXml)) throw CommandError(ExitStatus::NotRun, call.GetLastError());
    const ExportOptions& target = options.exportTo;
    for (const auto& [name, value] : options.parameters) SetParam(call, name, value);
    SetParam(call, "exporttype", ExportTypeFor(target.file));
    SetParam(call, "filename", target.file);
    if (target.table) SetParam(call, "tablename", *target.table);
    if (target.dataFolder) SetParam(call, "datafolder", *target.dataFolder);
    if (target.clear || !call.ExistParam("cleardata")) SetParam(call, "cleardata", target.clear ? "1" : "0");

    name_ = platform::TrimBlanks(call.FunctionName());
    if (IsBuiltIn(name_)) base_ = name_;
    if (IsExportable(base_)) call.FunctionName(kExport);
    if (!call.Save(requestXml_)) throw CommandError(ExitStatus::NotRun, call.GetLastError());
}

void ExportedFunction::TakeDefinitions(ZorbDbAccessEngine& engine, std::string_view definitionsXml) {
    pugi::xml_document document;
    if (!platform::LoadXmlText(definitionsXml, document)) return;
    for (const pugi::xml_node definition : document.document_element().children("functiondef")) {
        const std::string_view name = platform::TrimBlanks(definition.attribute("name").value());
        if (!platform::EqualIgnoringCase(name, name_)) continue;
        pugi::xml_attribute base = definition.select_node("function[@name!='']/@name").attribute();
        const std::string baseName(platform::TrimBlanks(base.value()));
        if (IsExportable(baseName)) base.set_value(kExport);

        platform::TextBuffer xml;
        xml.Append("<functions>");
        if (!platform::AppendXmlNode(xml, definition)) continue;
        xml.Append("</functions>");
        ZorbDbAccessEngine probe;  // a definition that does not load leaves the one before it in its place
        std::string report;
        if (!probe.LoadFunctionDefsXml(xml.ToString(), report) || !probe.IsFunctionDefined(name)) continue;
        engine.LoadFunctionDefsXml(xml.ToString(), report);
        base_ = baseName;
    }
}

void ExportedFunction::RequireExportable() const {
    // What is not defined at all, the engine tells.
    if (base_.empty() || IsExportable(base_)) return;
    throw CommandError(ExitStatus::NotRun,
                       "Cannot export " + name_ + ": only public.getdata, public.getdatatofile, " + kExport +
                           " and functions based on them can be exported" +
                           (base_ == name_ ? "." : ", and it is based on " + base_ + "."));
}

}  // namespace halvtiv::cli
