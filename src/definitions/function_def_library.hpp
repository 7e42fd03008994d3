#pragma once

#include <list>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <pugixml.hpp>

#include "definitions/function_def.hpp"
#include "foundation/err_object.hpp"

namespace halvtiv {

/// The definitions that an engine has loaded, and the built-in names that they may build on.
///
/// Names are matched without regard to letter case and not trimmed. Guarded as all classes.
class clsZorbFunctionDefLibrary {
public:
    explicit clsZorbFunctionDefLibrary(std::span<const std::string_view> builtInNames);

    bool IsBuildInFunction(std::string_view name) const;
    bool IsFunctionDefined(std::string_view name) const { return GetItemByName(name) != nullptr; }
    /// The definition of that name; null when there is none.
    std::shared_ptr<clsZorbFunctionDef> GetItemByName(std::string_view name) const;

    /// Loads all definitions of a file, replacing those of the same name; report is set to a line a
    /// definition and a summary. True even when definitions failed. "Specified function definition file not
    /// found - PATH.", "Invalid format for function definition file."
    bool LoadFunctionDefs(std::string_view path, std::string& report);
    /// The same from XML text. "Invalid format for function definition stream."
    bool LoadFunctionDefsXml(std::string_view xml, std::string& report);
    /// Loads one definition and returns it; null when it failed. message says in either case what came of it.
    std::shared_ptr<clsZorbFunctionDef> LoadFunctionDefXml(std::string_view xml, std::string& message);

    /// Turns a call of a defined function, in place, into a call of a built-in one, with the body for that
    /// database. "Function not found - NAME."
    bool CompileFunction(ZorbFunctionCall& call, std::string_view database = {});

    /// "Specified function not found - NAME."
    bool RemoveItem(std::string_view name);
    void RemoveAllItems();
    void Reset() { RemoveAllItems(); }

    bool RaiseLastError() const { return errors_.Raise(); }
    std::string GetLastError() const { return errors_.GetErrorMsg(); }

private:
    using Definitions = std::list<std::shared_ptr<clsZorbFunctionDef>>;

    std::shared_ptr<clsZorbFunctionDef> AddDefinition(std::string_view xml, std::string& message);
    void LoadDocument(const pugi::xml_document& document, std::string& report);
    template <typename Load>
    bool LoadReporting(std::string& report, Load&& load);
    void Replace(const std::string& name, std::shared_ptr<clsZorbFunctionDef> definition);
    bool Forget(std::string_view name);

    std::vector<std::string> builtInNames_;  // lower-cased, as the index below
    Definitions definitions_;                // in order of loading
    std::unordered_map<std::string, Definitions::iterator> byName_;
    clsZorbErrObject errors_{kProductName, "clsZorbXmlFunctionLibrary"};
};

}  // namespace halvtiv
