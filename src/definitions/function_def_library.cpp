#include "definitions/function_def_library.hpp"

#include <algorithm>
#include <new>
#include <utility>

#include "foundation/guarded.hpp"
#include "foundation/xml_utils.hpp"
#include "platform/files.hpp"
#include "platform/run_time_error.hpp"
#include "platform/text.hpp"
#include "platform/xml_reader.hpp"
#include "platform/xml_writer.hpp"

namespace halvtiv {

namespace {

constexpr std::string_view kNewLine = "\r\n";

[[noreturn]] void Raise(std::string_view message, std::string_view what = {}, std::string_view end = {}) {
    std::string words(message);
    words += what;
    words += end;
    throw OwnError("clsZorbFunctionDefLibrary", std::move(words));
}

}  // namespace

clsZorbFunctionDefLibrary::clsZorbFunctionDefLibrary(std::span<const std::string_view> builtInNames) {
    for (const std::string_view name : builtInNames) builtInNames_.push_back(platform::ToLower(name));
}

bool clsZorbFunctionDefLibrary::IsBuildInFunction(std::string_view name) const {
    const std::string lower = platform::ToLower(name);
    return std::find(builtInNames_.begin(), builtInNames_.end(), lower) != builtInNames_.end();
}

std::shared_ptr<clsZorbFunctionDef> clsZorbFunctionDefLibrary::GetItemByName(std::string_view name) const {
    const auto found = byName_.find(platform::ToLower(name));
    return found == byName_.end() ? nullptr : *found->second;
}

bool clsZorbFunctionDefLibrary::LoadFunctionDefs(std::string_view path, std::string& report) {
    return LoadReporting(report, [&](pugi::xml_document& document) {
        if (!platform::FileExists(path)) Raise("Specified function definition file not found - ", path, ".");
        if (!platform::LoadXmlFileBytes(platform::ReadWholeFile(path), document)) {
            Raise("Invalid format for function definition file.");
        }
    });
}

bool clsZorbFunctionDefLibrary::LoadFunctionDefsXml(std::string_view xml, std::string& report) {
    return LoadReporting(report, [&](pugi::xml_document& document) {
        if (!platform::LoadXmlText(xml, document)) Raise("Invalid format for function definition stream.");
    });
}

template <typename Load>
bool clsZorbFunctionDefLibrary::LoadReporting(std::string& report, Load&& load) {
    std::string lines;  // aside: the caller may give one text for both
    const auto breakOff = [&lines](std::string_view reason) {
        lines.append("Loading process broken by error: ").append(reason).append(kNewLine);
    };
    const bool loaded = Succeeds(errors_, [&] {
        lines.append("Loading functions ...").append(kNewLine);
        try {
            pugi::xml_document document;
            load(document);
            LoadDocument(document, lines);
        } catch (const ErrorInfo& error) {
            breakOff(error.Description);
            throw;
        } catch (const std::bad_alloc&) {
            breakOff(platform::RunTimeErrorText(platform::RunTimeError::OutOfMemory));
            throw;
        }
    });
    report = std::move(lines);
    return loaded;
}

void clsZorbFunctionDefLibrary::LoadDocument(const pugi::xml_document& document, std::string& report) {
    const std::size_t before = definitions_.size();
    std::size_t total = 0;
    std::size_t failed = 0;
    for (const pugi::xml_node element : document.document_element().children("functiondef")) {
        const std::string_view name = GetXmlAttribute(element, "name");
        if (name.empty()) continue;
        platform::TextBuffer xml(1024);
        if (!platform::AppendXmlNode(xml, element)) {
            platform::RaiseRunTimeError(platform::RunTimeError::InvalidArgument);
        }
        std::string message;
        ++total;
        try {
            AddDefinition(xml.ToString(), message);
        } catch (const ErrorInfo&) {
            ++failed;
        }
        report.append("> ").append(name).append(": ").append(message).append(kNewLine);
    }
    const std::size_t added = definitions_.size() - before;
    report += std::to_string(total) + " functions loaded(" + std::to_string(failed) + " failed, " +
              std::to_string(added) + " new added and " + std::to_string(total - added - failed) +
              " updated).";
    report += kNewLine;
}

std::shared_ptr<clsZorbFunctionDef> clsZorbFunctionDefLibrary::LoadFunctionDefXml(std::string_view xml,
                                                                                  std::string& message) {
    return Guarded(errors_, std::shared_ptr<clsZorbFunctionDef>(),
                   [&] { return AddDefinition(xml, message); });
}

// The message is set before anything is raised.
std::shared_ptr<clsZorbFunctionDef> clsZorbFunctionDefLibrary::AddDefinition(std::string_view xml,
                                                                             std::string& message) {
    auto definition = std::make_shared<clsZorbFunctionDef>();
    if (!definition->Parse(xml)) {
        message = "Failed. (" + std::string(definition->LastErrorWords()) + ")";
        definition->RaiseLastError();
    }
    for (const std::string& base : definition->FunctionBases()) {
        if (IsBuildInFunction(base)) continue;
        message = "Failed. (Invalid base function - " + base + ".)";
        Raise("Invalid base function - ", base, ".");
    }
    const std::string name = definition->FunctionName();
    const bool replaces = IsFunctionDefined(name);
    std::string done = std::string(replaces ? "Updated" : "Success") + ". (" +
                       std::to_string(definition->ParamCount()) + " parameters)";
    Replace(name, definition);
    message = std::move(done);
    return definition;
}

// The old one goes only when the new one is in its place.
void clsZorbFunctionDefLibrary::Replace(const std::string& name,
                                        std::shared_ptr<clsZorbFunctionDef> definition) {
    Definitions added;
    added.push_back(std::move(definition));
    const auto [entry, isNew] = byName_.try_emplace(platform::ToLower(name), added.begin());
    if (!isNew) {
        definitions_.erase(entry->second);
        entry->second = added.begin();
    }
    definitions_.splice(definitions_.end(), added);
}

bool clsZorbFunctionDefLibrary::CompileFunction(ZorbFunctionCall& call, std::string_view database) {
    return Succeeds(errors_, [&] {
        const std::string name = call.FunctionName();
        const std::shared_ptr<clsZorbFunctionDef> definition = GetItemByName(name);
        if (!definition) Raise("Function not found - ", name, ".");
        if (!definition->CompileFunction(call, database)) definition->RaiseLastError();
    });
}

bool clsZorbFunctionDefLibrary::RemoveItem(std::string_view name) {
    return Succeeds(errors_, [&] {
        if (!Forget(name)) Raise("Specified function not found - ", name, ".");
    });
}

void clsZorbFunctionDefLibrary::RemoveAllItems() {
    byName_.clear();
    definitions_.clear();
}

bool clsZorbFunctionDefLibrary::Forget(std::string_view name) {
    const auto found = byName_.find(platform::ToLower(name));
    if (found == byName_.end()) return false;
    definitions_.erase(found->second);
    byName_.erase(found);
    return true;
}

}  // namespace halvtiv
