#include "engine/function_run.hpp"

#include <halvtiv/function_call.hpp>
#include <halvtiv/function_result.hpp>

#include "documents/result_hand_over.hpp"
#include "engine/dispatcher.hpp"
#include "foundation/guarded.hpp"

namespace halvtiv {

bool RunFunction(EngineState& engine, std::string_view functionXml, std::string& resultXml) {
    engine.core.ForgetCancel();
    bool done = false;
    Succeeds(
        engine.errors,
        [&] {
            ZorbFunctionCall call;
            ZorbFunctionResult result;
            const bool parsed = call.Parse(functionXml);
            resultXml.clear();  // not before: the caller may give one text for both
            if (!parsed) call.RaiseLastError();
            CompileCall(engine, call);
            ExecuteBuiltInFunction(engine, call, result);
            done = true;  // a result that cannot be saved is the engine's last error, no failed call
            if (!ResultHandOver::Save(result, resultXml)) result.RaiseLastError();
        },
        [&] {
            if (!done) resultXml.clear();
        });
    return done;
}

}  // namespace halvtiv
