#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "options.hpp"

namespace halvtiv::cli {

/// The commands of a parser, and what their options fill in that is read once all are known. Stays where it
/// is: the parser points into it.
struct Commands {
    CLI::App* run = nullptr;
    CLI::App* call = nullptr;
    CLI::App* exporting = nullptr;
    CLI::App* copying = nullptr;
    CLI::App* defs = nullptr;
    CLI::App* defsList = nullptr;
    CLI::App* defsCheck = nullptr;

    // The two options of `call` whose order on the command line counts.
    const CLI::Option* set = nullptr;
    const CLI::Option* setFile = nullptr;

    std::optional<std::string> exportFile;  ///< of export's `--to`
    std::optional<std::string> batch;       ///< of copy's `--batch`

    // What the parser wants a place for; read from the commands and options themselves.
    std::string words;
    std::vector<std::string> sets;
};

/// Declares all commands with their options and their help.
void AddCommands(CLI::App& app, Options& options, Commands& commands);

/// Raises `CommandError` (not run) with a hint at the help.
[[noreturn]] void RaiseUsage(const std::string& message);
/// The same for a word, of which no value is shown.
[[noreturn]] void RaiseNotUnderstood(const std::string& word);

}  // namespace halvtiv::cli
