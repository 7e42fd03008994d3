#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <halvtiv/ado.hpp>

namespace halvtiv::exporters {

/// What the values of a column are, by its type; a single value may be of another kind all the same.
enum class ColumnKind { Integer, Double, Decimal, Boolean, DateTime, Bytes, Text };

/// A column of the recordset that is exported.
struct SourceColumn {
    ado::FieldPtr field;
    std::string name;
    std::int32_t type;  ///< `DataTypeEnum`
    ColumnKind kind;
};

std::vector<SourceColumn> ColumnsOf(ado::Recordset& rows);

/// The columns' names as UTF-8, a repeated one with "#2", "#3" behind it.
enum class NameCase { Counts, IsIgnored };
std::vector<std::string> DistinctNames(const std::vector<SourceColumn>& columns, NameCase nameCase);

/// ASCII letters lower-cased.
std::string AsciiLower(std::string_view text);

/// How many digits of a plain decimal number count: "-0012.50" has 4. 0 for a text of another form.
std::size_t SignificantDigits(std::string_view number);

}  // namespace halvtiv::exporters
