#pragma once

#include <cstdint>
#include <string_view>

struct sqlite3_stmt;

namespace halvtiv::ado {

/// What a column's declared type says.
struct DeclaredType {
    std::int32_t type = 0;  ///< `DataTypeEnum`; 0: the type is that of the values
    std::int64_t size = 0;  ///< the n of VARCHAR(n); 0: none
};

/// Reads a declared type such as "varchar(20)", in any letter case.
DeclaredType ReadDeclaredType(std::string_view declared);

/// Whether the database keeps a text in such a column as a text, whatever it spells.
bool HasTextAffinity(std::string_view declared);

/// The type that the column's value in the current row has by itself.
std::int32_t TypeOfValue(sqlite3_stmt* statement, int column);

/// What `Field::DefinedSize` says; unbounded is the database's limit for texts and bytes.
std::int64_t DefinedSizeOf(DeclaredType declared, std::int64_t unbounded);

}  // namespace halvtiv::ado
