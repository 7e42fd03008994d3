#include "defs_command.hpp"

#include <algorithm>
#include <charconv>
#include <halvtiv/error_info.hpp>
#include <iostream>
#include <pugixml.hpp>
#include <string_view>
#include <vector>

#include "display_width.hpp"
#include "output.hpp"
#include "platform/files.hpp"
#include "platform/keywords.hpp"
#include "platform/text.hpp"
#include "platform/text_buffer.hpp"
#include "platform/xml_reader.hpp"
#include "platform/xml_writer.hpp"

namespace halvtiv::cli {
namespace {

struct Parameter {
    std::string name;
    std::string type;
    std::string description;
};

struct Definition {
    std::string name;
    std::string base;
    std::vector<Parameter> parameters;
};

std::string Trimmed(std::string_view text) {
    return std::string(platform::TrimBlanks(text));
}

Definition ReadDefinition(const pugi::xml_node& node) {
    Definition definition;
    definition.name = Trimmed(node.attribute("name").value());
    for (const pugi::xpath_node& found : node.select_nodes("paramdef/param[@name!='']")) {
        const pugi::xml_node param = found.node();
        const pugi::xml_attribute value = param.attribute("value");
        definition.parameters.push_back({Trimmed(param.attribute("name").value()),
                                         platform::ToLower(Trimmed(param.attribute("type").value())),
                                         Trimmed(value ? value.value() : param.child_value())});
    }
    // The body that serves every database stands for one that is meant for some.
    pugi::xml_node body = node.select_node("function[@name!='' and not(@provider)]").node();
    if (!body) body = node.select_node("function[@name!='']").node();
    definition.base = Trimmed(body.attribute("name").value());
    return definition;
}

/// What an engine would hold after loading one file after the other: a definition replaces an earlier one of
/// its name, and stands at the end.
void AddDefinition(std::vector<Definition>& definitions, Definition definition) {
    std::erase_if(definitions, [&](const Definition& earlier) {
        return platform::EqualIgnoringCase(earlier.name, definition.name);
    });
    definitions.push_back(std::move(definition));
}

/// The widths of the list's first two columns: names, then bases and types.
struct ListWidths {
    std::size_t name = 0;
    std::size_t type = 0;
};

std::size_t WidthOf(std::string_view text) {
    std::string storage;
    return Show(text, storage).width;
}

ListWidths MeasureList(const std::vector<Definition>& definitions) {
    ListWidths widths;
    for (const Definition& definition : definitions) {
        widths.name = std::max(widths.name, WidthOf(definition.name));
        for (const Parameter& parameter : definition.parameters) {
            widths.name = std::max(widths.name, WidthOf(parameter.name) + 2);
            widths.type = std::max(widths.type, WidthOf(parameter.type));
        }
    }
    return widths;
}

void WriteList(const std::vector<Definition>& definitions, Output& output) {
    const ListWidths widths = MeasureList(definitions);
    for (const Definition& definition : definitions) {
        std::string line;
        AppendPadded(line, definition.name, widths.name + 2);
        AppendPadded(line, definition.base, 0);
        output.Write(line + '\n');
        for (const Parameter& parameter : definition.parameters) {
            line = "  ";
            AppendPadded(line, parameter.name, widths.name);
            if (parameter.description.empty()) {
                AppendPadded(line, parameter.type, 0);
            } else {
                AppendPadded(line, parameter.type, widths.type + 2);
                AppendPadded(line, parameter.description, 0);
            }
            output.Write(line + '\n');
        }
    }
}

/// The number of failures in the report's last line: "N functions loaded(F failed, ...".
std::int64_t FailureCount(std::string_view report) {
    constexpr std::string_view kBefore = " functions loaded(";
    const std::size_t found = report.rfind(kBefore);
    std::int64_t count = 0;
    if (found != std::string_view::npos) {
        const std::string_view digits = report.substr(found + kBefore.size());
        std::from_chars(digits.data(), digits.data() + digits.size(), count);
    }
    return count;
}

/// Says which files cannot be read as definition files and ends the command when there are any.
void RaiseUnreadable(const std::vector<std::string>& reasons) {
    if (reasons.empty()) return;
    std::string message;
    for (const std::string& reason : reasons) message += (message.empty() ? "" : "\n") + reason;
    throw CommandError(ExitStatus::NotRun, message);
}

}  // namespace

std::string LoadableDefinition(const pugi::xml_node& definition, std::string_view name) {
    platform::TextBuffer xml;
    xml.Append("<functions>");
    if (!platform::AppendXmlNode(xml, definition)) return {};
    xml.Append("</functions>");
    std::string file = xml.ToString();
    ZorbDbAccessEngine engine;
    std::string report;
    const bool isLoaded = engine.LoadFunctionDefsXml(file, report) && engine.IsFunctionDefined(name);
    return isLoaded ? file : std::string();
}

LoadReport LoadDefinitionFile(ZorbDbAccessEngine& engine, const std::string& path) {
    LoadReport report;
    try {
        if (!platform::DecodeXmlFileBytes(platform::ReadWholeFile(path), report.xml)) {
            report.text = platform::Shown(path) + ": The file is not in the encoding that it declares.";
            return report;
        }
    } catch (const ErrorInfo& error) {
        report.text = error.Description;
        return report;
    }
    // A pipe has been read by now; of a file the engine speaks as one.
    report.loaded = platform::StreamExists(path) ? engine.LoadFunctionDefsXml(report.xml, report.text)
                                                 : engine.LoadFunctionDefs(path, report.text);
    if (!report.loaded) {
        report.text = platform::Shown(path) + ": " + engine.GetLastError();
        return report;
    }
    report.failed = FailureCount(report.text);
    report.text = platform::ReplaceAll(report.text, "\r\n", "\n");
    return report;
}

ExitStatus ListDefinitions(const Options& options) {
    std::vector<Definition> definitions;
    std::vector<std::string> unreadable;
    std::vector<std::string> failed;
    for (const std::string& file : options.files) {
        // The engine has the say in what a definition file is.
        ZorbDbAccessEngine engine;
        const LoadReport report = LoadDefinitionFile(engine, file);
        pugi::xml_document document;
        if (!report.loaded || !platform::LoadXmlText(report.xml, document)) {
            unreadable.push_back(report.text);
            continue;
        }
        for (const pugi::xpath_node& found : document.select_nodes("/*/functiondef[@name!='']")) {
            Definition definition = ReadDefinition(found.node());
            if (!LoadableDefinition(found.node(), definition.name).empty()) {
                AddDefinition(definitions, std::move(definition));
            }
        }
        if (report.failed > 0) {
            failed.push_back(file + ": " + std::to_string(report.failed) +
                             (report.failed == 1 ? " definition is not listed because it does not load"
                                                 : " definitions are not listed because they do not load") +
                             "; 'halvtiv defs check' says why.");
        }
    }
    RaiseUnreadable(unreadable);

    Output output(options.output);
    WriteList(definitions, output);
    output.Finish();
    for (const std::string& message : failed) std::cerr << message << '\n';
    return failed.empty() ? ExitStatus::Done : ExitStatus::Failed;
}

ExitStatus CheckDefinitions(const Options& options) {
    ZorbDbAccessEngine engine;
    std::string text;
    std::vector<std::string> unreadable;
    bool complete = true;
    for (const std::string& file : options.files) {
        const LoadReport report = LoadDefinitionFile(engine, file);
        if (!report.loaded) {
            unreadable.push_back(report.text);
            continue;
        }
        if (options.files.size() > 1) text += file + ":\n";
        text += report.text;
        if (report.failed > 0) complete = false;
    }
    RaiseUnreadable(unreadable);

    Output output(options.output);
    output.Write(text);
    output.Finish();
    return complete ? ExitStatus::Done : ExitStatus::Failed;
}

}  // namespace halvtiv::cli
