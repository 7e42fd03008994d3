#pragma once

#include <string_view>

#include "ado/recordset_state.hpp"
#include "documents/result_content.hpp"
#include "foundation/err_object.hpp"

namespace halvtiv {

/// Writes an entry's element with the header and all rows of a recordset to a file of its own, which appears
/// under its name only when it is complete. Takes the same little memory however many rows there are.
/// Raises 75 for a file of the open database. entry: its attributes count; dataFolder and errors as for
/// `RecordsetRows`.
void WriteDataFile(std::string_view fileName, const ResultEntry& entry, ado::RecordsetState& recordset,
                   std::string_view dataFolder, clsZorbErrObject& errors);

}  // namespace halvtiv
