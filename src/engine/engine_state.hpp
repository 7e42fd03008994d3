#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "db/tiv_core.hpp"
#include "definitions/function_def_library.hpp"
#include "export/data_exporter_mgr.hpp"
#include "foundation/err_object.hpp"

namespace halvtiv {

/// What an engine owns, for the facade, the dispatcher and the handlers.
struct EngineState {
    EngineState();

    clsZorbFunctionDefLibrary library;
    clsZorbTivCore core;
    clsZorbDataExporterMgr exporters;
    clsZorbErrObject errors;
    IProgressUpdaterPtr progressUpdater;  ///< for exporters and copies of long values; may be null

    std::string connectionString;  ///< the last one that `SetDatabaseConnectionString` opened
    std::optional<std::int64_t> lastDisConnectTime;  ///< calendar seconds; of an attempt to reconnect, too
    std::int32_t reConnectInterval = -1;             ///< seconds; -1 never

    /// Opens the connection again when the interval allows it; an empty string means the one remembered.
    /// Guarded.
    bool ReConnect(std::string_view sConnectionString);
};

/// An error that the engine detects itself.
[[noreturn]] void RaiseEngineError(std::string message);

}  // namespace halvtiv
