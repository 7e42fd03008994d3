#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <vector>

#include <halvtiv/column_data_items.hpp>
#include <halvtiv/function_call.hpp>

#include "foundation/err_object.hpp"

namespace halvtiv {

/// One function definition: typed parameters that a caller must give, and a body, itself a call, into which
/// they are put. There may be other bodies for certain databases, with a "provider" attribute that lists
/// them.
///
/// Guarded as all classes: a failing operation answers false and keeps its reason.
class clsZorbFunctionDef {
public:
    /// Reads a definition's XML text. "Load function definition error.", "No function name defined.",
    /// "Invalid data type defined for parameter - "NAME".", "No function body defined.", "Invalid function
    /// body(WORDS)." What was there before is not cleared: use a new object for each definition.
    bool Parse(std::string_view xml);
    /// Turns a call of this function, in place, into a call of its base function, with the body for that
    /// database, in any letter case. After a failure the call may be half changed: discard it.
    bool CompileFunction(ZorbFunctionCall& call, std::string_view database = {});

    const std::string& FunctionName() const noexcept { return functionName_; }
    /// The name that the body calls.
    std::string FunctionBase() const { return functionBody_.FunctionName(); }
    /// The same of every body.
    std::vector<std::string> FunctionBases() const;
    /// The body's markup.
    const std::string& FunctionBody() const noexcept { return functionBodyText_; }
    std::int32_t ParamCount() const { return paramDefs_.Count(); }
    /// Empties name, parameters and body; the body's markup stays.
    void Reset();

    bool RaiseLastError() const { return errors_.Raise(); }
    std::string GetLastError() const { return errors_.GetErrorMsg(); }
    /// The last error's words without this class's label.
    std::string_view LastErrorWords() const noexcept { return errors_.Words(); }

private:
    /// A body for some databases.
    struct OtherBody {
        std::vector<std::string> databases;  // lower-cased
        ZorbFunctionCall call;
    };

    void Read(std::string_view xml);
    void Compile(ZorbFunctionCall& call, std::string_view database);
    const ZorbFunctionCall& BodyFor(std::string_view database) const;

    std::string functionName_;
    ZorbColumnDataItems paramDefs_;  // name, description, data type, marker
    ZorbFunctionCall functionBody_;
    std::string functionBodyText_;
    std::list<OtherBody> otherBodies_;
    clsZorbErrObject errors_{kProductName, "clsZorbXmlFunction"};
};

}  // namespace halvtiv
