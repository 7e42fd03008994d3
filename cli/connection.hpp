#pragma once

#include <halvtiv/db_access_engine.hpp>
#include <string>
#include <string_view>

#include "options.hpp"

namespace halvtiv::cli {

/// Connects the engine to the database of the options, or of the environment where they name none. Raises
/// `CommandError` (not run) when none is named or it cannot be opened.
void Connect(ZorbDbAccessEngine& engine, const ConnectionOptions& options);

/// The connection string with the password added, unless it has one already.
std::string WithPassword(std::string_view connection, std::string_view password);

}  // namespace halvtiv::cli
