#pragma once

#include <span>
#include <string_view>

#include <halvtiv/function_call.hpp>
#include <halvtiv/function_result.hpp>

#include "engine/engine_state.hpp"

namespace halvtiv {

/// Runs a call and fills the result; false with the engine's last error when it fails. What it has added by
/// then stays.
using BuiltInHandler = bool (*)(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);

/// The handler of a built-in name in any letter case, untrimmed; null when there is none.
BuiltInHandler FindBuiltInHandler(std::string_view name);
/// All built-in names, lower-case.
std::span<const std::string_view> BuiltInNames();

// Reading.
bool BuiltIn_GetData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_GetDataToFile(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_GetDataToExportFile(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_GetComplexData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);

// Changing and running free statements.
bool BuiltIn_AddData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_UpdateData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_UpdateDataEx(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_UpdateDataColAdd(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_DeleteData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_GetBinaryData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_SetBinaryData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_DeleteBinaryData(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);
bool BuiltIn_ExecuteSQL(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result);

}  // namespace halvtiv
