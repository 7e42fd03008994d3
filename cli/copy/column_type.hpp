#pragma once

#include <string>
#include <string_view>

namespace halvtiv::cli::copy {

enum class Dialect { Sqlite, Postgresql, MariaDb, SqlServer, Access };

/// What a column holds, as far as all databases know it.
enum class Kind {
    Boolean,
    TinyInt,  ///< 0 to 255
    SmallInt,
    Integer,
    BigInt,
    Single,
    Double,
    Decimal,
    Char,
    VarChar,
    Text,  ///< without a bound; also what no other database knows
    Binary,
    VarBinary,
    Blob,
    Date,
    Time,
    Timestamp,
    Guid
};

bool IsInteger(Kind kind);
bool IsBytes(Kind kind);
/// Whether values are equal only by luck when they have travelled as text.
bool IsApproximate(Kind kind);

struct ColumnType {
    Kind kind = Kind::Text;
    int length = 0;        ///< characters, bytes or digits; 0: no bound
    int scale = 0;         ///< digits behind the point
    std::string declared;  ///< as the database says it; "" for a column without a type
};

/// The type that a database's own words declare: "VARCHAR(20)", "timestamp without time zone", "int
/// unsigned".
ColumnType ReadType(Dialect dialect, std::string_view declared);

/// The words that declare it. keyColumns: how many columns the largest key or index has that this one belongs
/// to, 0 for none; a text without a bound gets one there where the database wants it.
std::string TypeText(Dialect dialect, const ColumnType& type, int keyColumns);

}  // namespace halvtiv::cli::copy
