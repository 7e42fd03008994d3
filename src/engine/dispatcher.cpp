#include "engine/dispatcher.hpp"

#include "documents/call_inside.hpp"
#include "documents/result_hand_over.hpp"
#include "engine/built_in_functions.hpp"
#include "foundation/guarded.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

bool HasConnection(EngineState& engine, RunsIn place) {
    const bool isConnected = engine.core.IsConnectionOK();
    if (place == RunsIn::Transaction) {
        if (!isConnected) RaiseEngineError("The connection was lost during the transaction.");
        if (!engine.core.InTransaction()) RaiseEngineError("The transaction was ended by one of its calls.");
    }
    return isConnected || engine.ReConnect({});
}

}  // namespace

void ReportError(const EngineState& engine, const ZorbFunctionCall& call, ZorbFunctionResult& result) {
    const std::string source = engine.errors.Source().value_or(std::string());
    ResultHandOver::AddError(result, CallInside::Guid(call), engine.errors.Number(),
                             platform::RepairXmlText(engine.errors.Description()),
                             platform::RepairXmlText(source));
}

bool ExecuteBuiltInFunction(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result,
                            RunsIn place) {
    const bool done = Guarded(engine.errors, false, [&] {
        if (!HasConnection(engine, place)) return false;
        const std::string& name = CallInside::Name(call);
        const BuiltInHandler handler = FindBuiltInHandler(name);
        if (handler == nullptr) RaiseEngineError("Function not implemented - " + name + ".");
        return handler(engine, call, result);
    });
    if (!done) ReportError(engine, call, result);
    return done;
}

void CompileCall(EngineState& engine, ZorbFunctionCall& call) {
    if (engine.library.IsBuildInFunction(CallInside::Name(call))) return;
    if (!engine.library.CompileFunction(call, engine.core.DatabaseName())) engine.library.RaiseLastError();
}

}  // namespace halvtiv
