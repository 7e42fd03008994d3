#pragma once

#include <halvtiv/db_access_engine.hpp>
#include <optional>
#include <string>
#include <string_view>

#include "options.hpp"

namespace halvtiv::cli {

/// Where else a connection is looked for, and what is said when it is not found.
struct ConnectionNames {
    const char* variable = "HALVTIV_CONNECTION";
    const char* passwordVariable = "HALVTIV_PASSWORD";
    const char* missing =
        "No database is named: use --db, --connection, --connection-file or the environment's "
        "HALVTIV_CONNECTION.";
    bool takesPaths = false;  ///< a connection string without "=" is the path of a database file
    bool makesFiles = false;  ///< a file that is missing is made
};

/// Connects the engine to the database of the options, or of the environment where they name none. Raises
/// `CommandError` (not run) when none is named, it cannot be opened or it is the file that `output` names.
/// Returns the path of a file that it has made.
std::optional<std::string> Connect(ZorbDbAccessEngine& engine, const ConnectionOptions& options,
                                   const std::optional<std::string>& output,
                                   const ConnectionNames& names = {});

/// The connection string with the password added, unless it has one already.
std::string WithPassword(std::string_view connection, std::string_view password);

}  // namespace halvtiv::cli
