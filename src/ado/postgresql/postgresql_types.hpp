#pragma once

#include <libpq-fe.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "ado/cell_text.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

/// What stands between the server's text of a value and the fixed format.
enum class PostgresqlForm : std::uint8_t { Plain, Boolean, Floating, Money, Guid, Moment, Binary };

/// A column of a result as this provider reads it.
struct PostgresqlColumn {
    Oid type = 0;
    PostgresqlForm form = PostgresqlForm::Plain;
    /// Where the value's length stands, for bytes that come with their row only when they are few; -1 for
    /// others.
    std::int32_t sizeColumn = -1;
};

PostgresqlColumn ColumnOf(const PGresult* result, int column);
/// Name, type and size; every column may be found null, for all that the result tells.
ColumnInfo InfoOf(const PGresult* result, int column);

/// The cell's text in its column's format.
std::string_view PostgresqlText(std::string_view raw, PostgresqlForm form, CellBuffer& buffer,
                                std::string& wholeValue);

/// The bytes that a text such as \x0A0B stands for.
std::int64_t SizeOfHex(std::string_view hex) noexcept;
/// Fills `piece` from a byte offset and returns how many bytes there were.
std::size_t ReadHex(std::string_view hex, std::int64_t offset, std::span<std::uint8_t> piece);

}  // namespace halvtiv::ado
