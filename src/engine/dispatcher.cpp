#include "engine/dispatcher.hpp"

#include "documents/call_inside.hpp"
#include "engine/built_in_functions.hpp"
#include "foundation/guarded.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

/// The engine's last error as the result's entry for this call.
void ReportError(const EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    const std::string source = engine.errors.Source().value_or(std::string());
    result.AddFunctionResult_Error(CallInside::Guid(call), engine.errors.Number(),
                                   platform::RepairXmlText(engine.errors.Description()),
                                   platform::RepairXmlText(source));
}

}  // namespace

bool ExecuteBuiltInFunction(EngineState& engine, ZorbFunctionCall& call, ZorbFunctionResult& result) {
    const bool done = Guarded(engine.errors, false, [&] {
        if (!engine.core.IsConnectionOK() && !engine.ReConnect({})) return false;
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
    if (!engine.library.CompileFunction(call)) engine.library.RaiseLastError();
}

}  // namespace halvtiv
