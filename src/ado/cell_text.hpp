#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include <halvtiv/ado.hpp>

#include "ado/data_type_traits.hpp"
#include "ado/provider.hpp"
#include "platform/date_time.hpp"
#include "platform/number.hpp"

namespace halvtiv::ado {

// The fixed formats in which every provider gives its cells, by the column's type; what the type cannot hold
// goes out as the text it is.

/// Where a formatted cell stands until the next one.
struct CellBuffer {
    char number[platform::kNumberTextSize];
    char dateTime[platform::kDateTimeTextSize];
    char guid[38];
};

std::string_view CellTextOfInteger(std::int64_t value, std::int32_t type, CellBuffer& buffer);
/// The shortest form; in a decimal column without an exponent, where it fits.
std::string_view CellTextOfDouble(double value, std::int32_t type, CellBuffer& buffer);
/// Dates, times, GUIDs and booleans are brought into their form; everything else stays as it is.
std::string_view CellTextOfText(std::string_view value, std::int32_t type, CellBuffer& buffer);
/// Sixteen bytes of a GUID column become its text; everything else stays as it is.
std::string_view CellTextOfBytes(std::string_view value, std::int32_t type, CellBuffer& buffer);

/// The cell in its column's format, by its kind.
std::string_view CellText(const CellValue& value, std::int32_t type, CellBuffer& buffer);

/// Whether `CellTextOfText` may change a text of this type; the others need no call.
constexpr bool HasTextForm(std::int32_t type) noexcept {
    return type == adBoolean || type == adGUID || (type >= adDBDate && type <= adDBTimeStamp);
}

/// The value that a cell's text stands for: by the column's type, or a text where it is none of that type.
Variant ValueOfCellText(std::string_view text, std::int32_t type);

/// Copies what the piece has room for, from the offset on; how many bytes that were, 0 behind the end.
std::size_t CopyPiece(std::string_view bytes, std::int64_t offset, std::span<std::uint8_t> piece);

}  // namespace halvtiv::ado
