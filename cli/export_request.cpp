#include "export_request.hpp"

#include <algorithm>
#include <array>
#include <halvtiv/halvtiv.hpp>
#include <halvtiv_exporters/exporters.hpp>
#include <pugixml.hpp>
#include <utility>

#include "command_error.hpp"
#include "defs_command.hpp"
#include "platform/keywords.hpp"
#include "platform/text.hpp"
#include "platform/xml_reader.hpp"

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

/// Whether a name is in a list with blanks and commas between, in any letter case.
bool IsIn(std::string_view list, std::string_view name) {
    constexpr std::string_view kBetween = " ,";
    while (!list.empty()) {
        const std::size_t end = std::min(list.find_first_of(kBetween), list.size());
        if (end > 0 && platform::EqualIgnoringCase(list.substr(0, end), name)) return true;
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return false;
}

/// The export type of a file by its name; raises for one that no exporter writes.
std::string ExportTypeFor(const std::string& file) {
    if (const IZorbDataExporterPtr exporter = exporters::ExporterForFile(file)) {
        return exporter->ExportTypeString();
    }
    throw CommandError(
        ExitStatus::NotRun,
        "Cannot tell a format from the name " + platform::Shown(file) +
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
    if (IsBuiltIn(name_)) bodies_ = {{name_, std::nullopt}};
    if (IsExportable(name_)) call.FunctionName(kExport);
    if (!call.Save(requestXml_)) throw CommandError(ExitStatus::NotRun, call.GetLastError());
}

void ExportedFunction::TakeDefinitions(ZorbDbAccessEngine& engine, std::string_view definitionsXml) {
    pugi::xml_document document;
    if (!platform::LoadXmlText(definitionsXml, document)) return;
    for (const pugi::xml_node definition : document.document_element().children("functiondef")) {
        const std::string_view name = platform::TrimBlanks(definition.attribute("name").value());
        if (!platform::EqualIgnoringCase(name, name_)) continue;
        std::vector<Body> bodies;
        for (const pugi::xml_node body : definition.children("function")) {
            pugi::xml_attribute base = body.attribute("name");
            if (*base.value() == '\0') continue;
            bodies.push_back({std::string(platform::TrimBlanks(base.value())), std::nullopt});
            if (const pugi::xml_attribute databases = body.attribute("provider")) {
                bodies.back().databases = databases.value();
            }
            if (IsExportable(bodies.back().base)) base.set_value(kExport);
        }

        // One that does not load leaves the one before it in its place.
        const std::string file = LoadableDefinition(definition, name);
        std::string report;
        if (file.empty() || !engine.LoadFunctionDefsXml(file, report)) continue;
        bodies_ = std::move(bodies);
    }
}

// As a definition chooses: the first body that names the database, else the first that names none.
std::string ExportedFunction::BaseFor(std::string_view database) const {
    const auto find = [this](const auto& isIt) { return std::find_if(bodies_.begin(), bodies_.end(), isIt); };
    auto body = find([&](const Body& it) { return it.databases && IsIn(*it.databases, database); });
    if (body == bodies_.end()) body = find([](const Body& it) { return !it.databases; });
    if (body == bodies_.end()) body = bodies_.begin();
    return body == bodies_.end() ? std::string() : body->base;
}

void ExportedFunction::RequireExportable(std::string_view database) const {
    const std::string base = BaseFor(database);
    // What is not defined at all, the engine tells.
    if (base.empty() || IsExportable(base)) return;
    throw CommandError(ExitStatus::NotRun, "Cannot export " + name_ +
                                               ": only public.getdata, public.getdatatofile, " + kExport +
                                               " and functions based on them can be exported" +
                                               (base == name_ ? "." : ", and it is based on " + base + "."));
}

}  // namespace halvtiv::cli
