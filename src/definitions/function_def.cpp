#include "definitions/function_def.hpp"

#include <algorithm>
#include <utility>

#include <pugixml.hpp>

#include <halvtiv/data_types.hpp>

#include "ado/database_names.hpp"
#include "foundation/guarded.hpp"
#include "foundation/this_utils.hpp"
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

bool IsBody(const pugi::xml_node& node) {
    return !GetXmlAttribute(node, "name").empty();
}

/// The body for every database that has none of its own: the first without a "provider", else the first.
pugi::xml_node UsualBody(const pugi::xml_node& root) {
    pugi::xml_node first;
    for (const pugi::xml_node child : root.children("function")) {
        if (!IsBody(child)) continue;
        if (!child.attribute("provider")) return child;
        if (!first) first = child;
    }
    return first;
}

void RequireDatabase(std::string_view name) {
    std::string known;
    for (const std::string_view database : ado::kDatabaseNames) {
        if (platform::EqualIgnoringCase(database, name)) return;
        known.append(known.empty() ? "" : ", ").append(database);
    }
    Raise("Invalid provider of function body - \"" + std::string(name) + "\" (known are " + known + ").");
}

/// The databases in a list of names between blanks and commas, lower-cased. "Invalid provider of function
/// body
/// - "NAME" (known are NAMES)."
std::vector<std::string> DatabasesIn(std::string_view list) {
    constexpr std::string_view kBetween = " ,";
    std::vector<std::string> databases;
    std::size_t begin = 0;
    do {
        begin = std::min(list.find_first_not_of(kBetween, begin), list.size());
        const std::string_view name = list.substr(begin, list.find_first_of(kBetween, begin) - begin);
        RequireDatabase(name);
        databases.push_back(platform::ToLower(name));
        begin = list.find_first_not_of(kBetween, begin + name.size());
    } while (begin != std::string_view::npos);
    return databases;
}

std::string MarkupOf(const pugi::xml_node& node) {
    platform::TextBuffer xml(512);
    if (!platform::AppendXmlNode(xml, node))
        platform::RaiseRunTimeError(platform::RunTimeError::InvalidArgument);
    return xml.ToString();
}

void ReadBody(ZorbFunctionCall& body, const std::string& xml) {
    if (body.Parse(xml)) return;
    try {
        body.RaiseLastError();
    } catch (const ErrorInfo& error) {
        Raise("Invalid function body(" + error.Description + ").");
    }
}

std::string_view Trimmed(std::string_view text) {
    return platform::TrimBlanks(text);
}

}  // namespace

bool clsZorbFunctionDef::Parse(std::string_view xml) {
    return Succeeds(errors_, [&] { Read(xml); });
}

bool clsZorbFunctionDef::CompileFunction(ZorbFunctionCall& call, std::string_view database) {
    return Succeeds(errors_, [&] { Compile(call, database); });
}

void clsZorbFunctionDef::Reset() {
    functionName_.clear();
    paramDefs_.Reset();
    functionBody_.Reset();
    otherBodies_.clear();
}

std::vector<std::string> clsZorbFunctionDef::FunctionBases() const {
    std::vector<std::string> bases{FunctionBase()};
    for (const OtherBody& body : otherBodies_) bases.push_back(body.call.FunctionName());
    return bases;
}

const ZorbFunctionCall& clsZorbFunctionDef::BodyFor(std::string_view database) const {
    const std::string name = platform::ToLower(database);
    for (const OtherBody& body : otherBodies_) {
        if (std::find(body.databases.begin(), body.databases.end(), name) != body.databases.end()) {
            return body.call;
        }
    }
    return functionBody_;
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
            const std::string_view extra = Trimmed(GetXmlAttributeOrText(param, "extra"));
            // The element's text, which stands for an extra that is not written, may be a description.
            if (param.attribute("extra") && !DoublesQuotes(extra)) {
                Raise("Invalid extra defined for parameter - \"" + std::string(name) + "\" (\"" +
                      std::string(extra) + "\" is not \"quote\").");
            }
            paramDefs_.Add(name, Trimmed(GetXmlAttributeOrText(param, "value")), type, extra);
        }
    }

    const pugi::xml_node body = UsualBody(root);
    if (!body) Raise("No function body defined.");
    functionBodyText_ = MarkupOf(body);
    ReadBody(functionBody_, functionBodyText_);
    for (const pugi::xml_node other : root.children("function")) {
        if (!IsBody(other) || !other.attribute("provider")) continue;
        OtherBody& read = otherBodies_.emplace_back();
        read.databases = DatabasesIn(GetXmlAttribute(other, "provider"));
        ReadBody(read.call, MarkupOf(other));
    }
}

}  // namespace halvtiv
