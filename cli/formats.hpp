#pragma once

#include <string>
#include <string_view>

#include "options.hpp"
#include "output.hpp"

namespace halvtiv::cli {

/// Writes a result document in the format of the options, a table on a terminal and XML elsewhere without
/// one, and finishes the output. Without a document nothing is written.
void WriteResult(const Options& options, const std::string& resultXml, Output& output);

// The ways to show a result document. All raise what `Output` and `ReadResult` raise.

/// One table an entry, columns aligned by display width; errors, information and files as a line each.
void WriteTable(std::string_view xml, Output& output);

/// Comma-separated values as in RFC 4180: a line of names, then the rows; an empty line between entries.
void WriteCsv(std::string_view xml, Output& output);

/// An array with an object an entry.
void WriteJson(std::string_view xml, Output& output);

}  // namespace halvtiv::cli
