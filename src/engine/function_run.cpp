#include "engine/function_run.hpp"

#include <string>

#include <halvtiv/function_call.hpp>
#include <halvtiv/function_result.hpp>

#include "documents/result_hand_over.hpp"
#include "engine/dispatcher.hpp"
#include "foundation/guarded.hpp"

namespace halvtiv {

namespace {

/// Of a connection that has broken meanwhile it is known, too.
bool KnowsItsDatabase(const EngineState& engine) {
    return !engine.core.DatabaseName().empty() || engine.core.IsConnectionOK();
}

}  // namespace

bool RunFunction(EngineState& engine, std::string_view functionXml, std::string& resultXml) {
    const auto underWay = engine.core.BeginCall();
    bool done = false;
    Succeeds(
        engine.errors,
        [&] {
            ZorbFunctionCall call;
            ZorbFunctionResult result;
            const bool parsed = call.Parse(functionXml);
            const bool isConnected = KnowsItsDatabase(engine);
            const std::string again(isConnected ? std::string_view() : functionXml);
            resultXml.clear();  // not before: the caller may give one text for both
            if (!parsed) call.RaiseLastError();
            CompileCall(engine, call);
            if (isConnected) {
                ExecuteBuiltInFunction(engine, call, result);
            } else if (engine.ReConnect({})) {
                // Which body is meant is known only now.
                if (!call.Parse(again)) call.RaiseLastError();
                CompileCall(engine, call);
                ExecuteBuiltInFunction(engine, call, result);
            } else {
                ReportError(engine, call, result);
            }
            done = true;  // a result that cannot be saved is the engine's last error, no failed call
            if (!ResultHandOver::Save(result, resultXml)) result.RaiseLastError();
        },
        [&] {
            if (!done) resultXml.clear();
        });
    return done;
}

}  // namespace halvtiv
