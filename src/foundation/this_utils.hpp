#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <halvtiv/data_types.hpp>

namespace halvtiv {

// The small functions that every layer shares. Those that clients need are in <halvtiv/data_types.hpp>.

/// The text's value as a 32-bit integer, a fraction rounded half to even; the default when it is not numeric
/// or does not fit.
std::int32_t StrToLongDef(std::string_view text, std::int32_t defaultValue);

/// `DataTypeToName` without a copy: a text that lives for good.
std::string_view DataTypeText(std::int32_t dataType) noexcept;

/// The document name of a `QorvResultTypeEnum` code; "(unknown)" for any other number.
std::string ResultTypeToName(std::int32_t resultType);
/// The code of a name in any letter case; "" counts as "data"; -1 for any other text.
std::int32_t ResultTypeFromName(std::string_view name);
/// The document name of a `QorvColumnTypeEnum` code; "(unknown)" for any other number.
std::string ColumnTypeToName(std::int32_t columnType);
/// The code of a name in any letter case; "" counts as "data"; -1 for any other text.
std::int32_t ColumnTypeFromName(std::string_view name);

/// The `QorvStockDataTypeEnum` of a data-access type number; -1 for one that belongs to none.
std::int32_t AdoTypeToDataType(std::int32_t fieldType);
/// Whether fields of that data-access type are binary or long: their values go to files.
bool IsBlobField(std::int32_t fieldType);

/// Whether a text is a value of a `QorvStockDataTypeEnum`. Raises 6 for an integer beyond 32 bits.
bool IsValidDataValue(std::string_view text, std::int32_t dataType);

/// Whether an "extra" asks for the quotes in a value to be doubled: "quote" and "quoted", in any letter case,
/// do,
/// "" does not. Nothing for any other word.
std::optional<bool> DoublesQuotes(std::string_view extra);

/// The text with every "'" doubled.
std::string EscapeSqlQuotes(std::string_view text);

}  // namespace halvtiv
