#include "call_request.hpp"

#include <halvtiv/halvtiv.hpp>

#include "command_error.hpp"

namespace halvtiv::cli {
namespace {

[[noreturn]] void RaiseLastError(const ZorbFunctionCall& call) {
    throw CommandError(ExitStatus::NotRun, call.GetLastError());
}

}  // namespace

std::string BuildRequest(const Options& options) {
    ZorbFunctionCall call;
    call.FunctionName(options.function);
    for (const auto& [name, value] : options.parameters) {
        if (call.AddParam(name, value) < 0) RaiseLastError(call);
    }
    if (!options.sets.empty()) {
        const std::int32_t block = call.AddDataParam("data");
        for (const SetOption& set : options.sets) {
            const std::int32_t type = set.isFile ? QORV_COLUMN_FILE : QORV_COLUMN_DATA;
            if (call.AddSubParam(block, set.column, set.value, type) < 0) RaiseLastError(call);
        }
    }
    std::string xml;
    if (!call.Save(xml)) RaiseLastError(call);
    return xml;
}

}  // namespace halvtiv::cli
