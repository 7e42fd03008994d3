#pragma once

#include <string>

#include <halvtiv/function_result.hpp>

namespace halvtiv {

/// For the engine, which throws a result away once it is saved.
struct ResultHandOver {
    /// `ZorbFunctionResult::Save` that gives the text over instead of copying it: the result is empty
    /// afterwards.
    static bool Save(ZorbFunctionResult& result, std::string& xml);
    /// `result.MergeResult(other)` that gives the entries over instead of copying them: the other result,
    /// which must be another one, has none afterwards.
    static bool Merge(ZorbFunctionResult& result, ZorbFunctionResult& other);
};

}  // namespace halvtiv
