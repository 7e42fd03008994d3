#include "engine/engine_state.hpp"

#include <utility>

#include "engine/built_in_functions.hpp"
#include "foundation/guarded.hpp"
#include "platform/clock.hpp"

namespace halvtiv {

namespace {

constexpr std::string_view kClass = "ZorbDbAccessEngine";
constexpr std::string_view kTryLater = "数据库连接已经断开，请稍后再试。";

}  // namespace

EngineState::EngineState() : library(BuiltInNames()), errors(kProductName, kClass) {
    core.SetCopyProgress([this](std::int64_t done, std::int64_t total) {
        const IProgressUpdaterPtr updater = progressUpdater;  // it may set another
        if (updater) updater->UpdateProgress(done, total);
    });
}

bool EngineState::ReConnect(std::string_view sConnectionString) {
    return Succeeds(errors, [&] {
        const std::int64_t now = platform::CalendarSeconds();
        const bool isTooSoon =
            reConnectInterval > 0 && lastDisConnectTime && now - *lastDisConnectTime < reConnectInterval;
        if (reConnectInterval == -1 || isTooSoon) {
            RaiseEngineError(std::string(kTryLater) + std::to_string(reConnectInterval));
        }
        lastDisConnectTime = now;  // whatever comes of this attempt
        const std::string target(sConnectionString.empty() ? connectionString : sConnectionString);
        if (target.empty()) RaiseEngineError("ConnectionString is not set.");
        if (!core.ReConnect(target)) core.RaiseLastError();
    });
}

void RaiseEngineError(std::string message) {
    throw OwnError(kClass, std::move(message));
}

}  // namespace halvtiv
