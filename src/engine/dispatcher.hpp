#pragma once

#include <halvtiv/function_call.hpp>
#include <halvtiv/function_result.hpp>

#include "engine/engine_state.hpp"

namespace halvtiv {

/// Where a call runs. A lost connection is opened again, but not within a transaction: there the call would
/// run outside of it, as it would after another call's own SQL has ended the transaction.
enum class RunsIn { NoTransaction, Transaction };

/// Runs a call of a built-in function: the connection is looked after first, a failure becomes an error entry
/// under the call's GUID. Answers whether the function succeeded; the engine's last error tells why not.
bool ExecuteBuiltInFunction(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result,
                            RunsIn place = RunsIn::NoTransaction);

/// Adds the engine's last error to the result as the entry for this call.
void ReportError(const EngineState& engine, const ZorbFunctionCall& call, ZorbFunctionResult& result);

/// Turns a call of a defined function, in place, into the call of a built-in one; leaves others as they are.
/// Raises why a call cannot be compiled.
void CompileCall(EngineState& engine, ZorbFunctionCall& call);

}  // namespace halvtiv
