#pragma once

#include <cstdint>
#include <halvtiv/db_access_engine.hpp>
#include <pugixml.hpp>
#include <string>
#include <string_view>

#include "command_error.hpp"
#include "options.hpp"

namespace halvtiv::cli {

/// How the loading of one definition file went.
struct LoadReport {
    bool loaded = false;      ///< false: the file could not be read as a definition file
    std::int64_t failed = 0;  ///< definitions in it that did not load
    std::string text;         ///< the report in lines, or the reason when not loaded
    std::string xml;          ///< what the file holds, in UTF-8
};

/// Loads a definition file, which is read once and may be a pipe, into the engine.
LoadReport LoadDefinitionFile(ZorbDbAccessEngine& engine, const std::string& path);

/// A definition file of that one definition, for an engine that is to have it; "" where an engine does not
/// take it.
std::string LoadableDefinition(const pugi::xml_node& definition, std::string_view name);

// Both raise `CommandError`, with "not run" when a file cannot be read as a definition file; nothing is
// written then.

/// `halvtiv defs list`
ExitStatus ListDefinitions(const Options& options);

/// `halvtiv defs check`
ExitStatus CheckDefinitions(const Options& options);

}  // namespace halvtiv::cli
