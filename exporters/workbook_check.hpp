#pragma once

#include <cstdint>
#include <string>

namespace halvtiv::exporters {

/// What a sheet must hold: length and CRC-32 of the row data without the last row, and the number of its
/// cells, of those with a format, and of its columns with a width.
struct SheetContent {
    std::uint64_t size = 0;
    std::uint32_t checksum = 0;
    std::uint64_t cells = 0;
    std::uint64_t formattedCells = 0;
    std::uint64_t columns = 0;
};

/// Reads a finished workbook of one sheet from its directory to the end of each part: the library that writes
/// it does not report every failed write and every failed allocation. Raises 57 for a part that is missing,
/// cut or of another checksum than the directory says, for XML without its end, for parts without a type or a
/// relationship, for lists without all of their elements, and for rows that are not those of `sheet`. name is
/// for the message.
void RequireWholeWorkbook(const std::string& path, const SheetContent& sheet, const std::string& name);

}  // namespace halvtiv::exporters
