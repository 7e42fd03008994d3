#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <halvtiv/function_result.hpp>

namespace halvtiv {

/// What the engine does otherwise than clients: it discards a result once it is saved.
struct ResultHandOver {
    /// `ZorbFunctionResult::Save` that gives the text over instead of copying it: the result is empty
    /// afterwards.
    static bool Save(ZorbFunctionResult& result, std::string& xml);
    /// `result.MergeResult(other)` that gives the entries over instead of copying them: the other result,
    /// which must be another one, has none afterwards.
    static bool Merge(ZorbFunctionResult& result, ZorbFunctionResult& other);
    /// `ZorbFunctionResult::AddFunctionResult_Error` that compares the key as it stands: whatever a request's
    /// key is, a failure has its entry.
    static bool AddError(ZorbFunctionResult& result, std::string_view guid, std::int32_t number,
                         std::string_view description, std::string_view source);
    /// `ZorbFunctionResult::ChangeResultDataGUID` that compares the key as it stands.
    static bool ChangeKey(ZorbFunctionResult& result, std::string_view oldGuid, std::string_view newGuid);
};

}  // namespace halvtiv
