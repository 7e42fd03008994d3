#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ado/provider.hpp"

namespace halvtiv {

/// The name of the file for a row's value: "photo.000001".
std::string FieldFileName(std::string_view columnName, std::int64_t rowIndex);

/// Writes a binary or long value of the current row to a file, which it creates or replaces: empty first,
/// then whole. A null or empty value leaves an empty file. Values pass in pieces of 4096 bytes. Raises "Not a
/// valid field (neither binary nor long).", 75 for a file name that leads out of the folder, and the run-time
/// errors of files.
void WriteFieldToFile(ado::RowSource& row, std::int32_t column, const ado::ColumnInfo& info,
                      std::string_view folder, std::string_view fileName);

}  // namespace halvtiv
