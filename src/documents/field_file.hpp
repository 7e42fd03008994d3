#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ado/recordset_state.hpp"

namespace halvtiv {

/// The name of the file for a row's value: "photo.000001".
std::string FieldFileName(std::string_view columnName, std::int64_t rowIndex);

/// Writes a binary or long value of the current row to a file, which it creates or replaces once it is
/// complete. A null or empty value gives an empty file. Raises "Not a
/// valid field (neither binary nor long).", 75 for a file name that leads out of the folder or to a file of
/// the open database, and the run-time errors of files.
void WriteFieldToFile(const ado::RecordsetState& recordset, ado::RowSource& row, std::int32_t column,
                      std::string_view folder, std::string_view fileName);

}  // namespace halvtiv
