#include "copy/column_type.hpp"

#include <algorithm>
#include <array>
#include <charconv>
#include <optional>
#include <vector>

#include "platform/text.hpp"

namespace halvtiv::cli::copy {
namespace {

struct TypeName {
    std::string_view name;
    Kind kind;
};

/// What the names mean on most databases.
constexpr std::array<TypeName, 64> kNames{{
    {"bit", Kind::Boolean},
    {"bool", Kind::Boolean},
    {"boolean", Kind::Boolean},
    {"tinyint", Kind::TinyInt},
    {"tinyint unsigned", Kind::TinyInt},
    {"int2", Kind::SmallInt},
    {"smallint", Kind::SmallInt},
    {"year", Kind::SmallInt},
    {"int", Kind::Integer},
    {"int4", Kind::Integer},
    {"integer", Kind::Integer},
    {"mediumint", Kind::Integer},
    {"mediumint unsigned", Kind::Integer},
    {"smallint unsigned", Kind::Integer},
    {"bigint", Kind::BigInt},
    {"int unsigned", Kind::BigInt},
    {"int8", Kind::BigInt},
    {"oid", Kind::BigInt},
    {"real", Kind::Single},
    {"double", Kind::Double},
    {"double precision", Kind::Double},
    {"float", Kind::Double},
    {"decimal", Kind::Decimal},
    {"number", Kind::Decimal},
    {"numeric", Kind::Decimal},
    {"bpchar", Kind::Char},
    {"char", Kind::Char},
    {"character", Kind::Char},
    {"nchar", Kind::Char},
    {"character varying", Kind::VarChar},
    {"nvarchar", Kind::VarChar},
    {"varchar", Kind::VarChar},
    {"sysname", Kind::Text},
    {"binary", Kind::Binary},
    {"varbinary", Kind::VarBinary},
    {"blob", Kind::Blob},
    {"bytea", Kind::Blob},
    {"image", Kind::Blob},
    {"longblob", Kind::Blob},
    {"longvarbinary", Kind::Blob},
    {"mediumblob", Kind::Blob},
    {"rowversion", Kind::Blob},
    {"tinyblob", Kind::Blob},
    {"date", Kind::Date},
    {"time", Kind::Time},
    {"time without time zone", Kind::Time},
    {"datetime", Kind::Timestamp},
    {"datetime2", Kind::Timestamp},
    {"smalldatetime", Kind::Timestamp},
    {"timestamp", Kind::Timestamp},
    {"timestamp with time zone", Kind::Timestamp},
    {"timestamp without time zone", Kind::Timestamp},
    {"timestamptz", Kind::Timestamp},
    {"guid", Kind::Guid},
    {"uniqueidentifier", Kind::Guid},
    {"uuid", Kind::Guid},
    {"clob", Kind::Text},
    {"longtext", Kind::Text},
    {"mediumtext", Kind::Text},
    {"memo", Kind::Text},
    {"ntext", Kind::Text},
    {"text", Kind::Text},
    {"tinytext", Kind::Text},
    {"xml", Kind::Text},
}};

struct DialectTypeName {
    Dialect dialect;
    std::string_view name;
    Kind kind;
};

/// What a few of them mean on one.
constexpr std::array<DialectTypeName, 16> kOwnNames{{
    {Dialect::Sqlite, "int", Kind::BigInt},
    {Dialect::Sqlite, "integer", Kind::BigInt},
    {Dialect::Sqlite, "real", Kind::Double},
    {Dialect::MariaDb, "float", Kind::Single},
    {Dialect::MariaDb, "tinyint", Kind::SmallInt},
    {Dialect::MariaDb, "geometry", Kind::Blob},
    {Dialect::MariaDb, "geometrycollection", Kind::Blob},
    {Dialect::MariaDb, "linestring", Kind::Blob},
    {Dialect::MariaDb, "multilinestring", Kind::Blob},
    {Dialect::MariaDb, "multipoint", Kind::Blob},
    {Dialect::MariaDb, "multipolygon", Kind::Blob},
    {Dialect::MariaDb, "point", Kind::Blob},
    {Dialect::MariaDb, "polygon", Kind::Blob},
    {Dialect::Postgresql, "bit", Kind::Text},
    {Dialect::Postgresql, "\"char\"", Kind::Text},
    {Dialect::SqlServer, "timestamp", Kind::Blob},
}};

/// How each kind is declared; "%" stands for the bound, if there is one.
struct Declaration {
    Kind kind;
    std::string_view sqlite, postgresql, mariaDb, sqlServer;
};

constexpr std::array<Declaration, 18> kDeclarations{{
    {Kind::Boolean, "BOOLEAN", "boolean", "boolean", "bit"},
    {Kind::TinyInt, "TINYINT", "smallint", "tinyint unsigned", "tinyint"},
    {Kind::SmallInt, "SMALLINT", "smallint", "smallint", "smallint"},
    {Kind::Integer, "INTEGER", "integer", "int", "int"},
    {Kind::BigInt, "BIGINT", "bigint", "bigint", "bigint"},
    {Kind::Single, "REAL", "real", "float", "real"},
    {Kind::Double, "DOUBLE", "double precision", "double", "float"},
    {Kind::Decimal, "DECIMAL%", "numeric%", "decimal%", "decimal%"},
    {Kind::Char, "CHAR%", "char%", "char%", "nchar%"},
    {Kind::VarChar, "VARCHAR%", "varchar%", "varchar%", "nvarchar%"},
    {Kind::Text, "TEXT", "text", "longtext", "nvarchar(max)"},
    {Kind::Binary, "BINARY%", "bytea", "binary%", "binary%"},
    {Kind::VarBinary, "VARBINARY%", "bytea", "varbinary%", "varbinary%"},
    {Kind::Blob, "BLOB", "bytea", "longblob", "varbinary(max)"},
    {Kind::Date, "DATE", "date", "date", "date"},
    {Kind::Time, "TIME", "time", "time(6)", "time"},
    {Kind::Timestamp, "TIMESTAMP", "timestamp", "datetime(6)", "datetime2"},
    {Kind::Guid, "GUID", "uuid", "char(38)", "uniqueidentifier"},
}};

/// "name (1, 2) more" taken apart: "name more" in lower case, and the numbers.
struct Words {
    std::string name;
    std::vector<int> numbers;
};

Words Split(std::string_view declared) {
    Words words;
    const std::string lower = platform::ToLower(declared);
    const std::size_t open = lower.find('(');
    const std::size_t close = lower.find(')', std::min(open, lower.size()));
    words.name = platform::TrimBlanks(std::string_view(lower).substr(0, open));
    if (close == std::string::npos) return words;
    words.name += lower.substr(close + 1);
    const char* position = lower.data() + open + 1;
    const char* const end = lower.data() + close;
    while (position < end) {
        int number = 0;
        const auto [next, error] = std::from_chars(position, end, number);
        if (error == std::errc()) words.numbers.push_back(number);
        position = next + 1;
    }
    return words;
}

/// What that database makes of a name that it does not know: any is allowed.
Kind AffinityOf(std::string_view name) {
    const auto has = [name](std::string_view part) { return name.find(part) != std::string_view::npos; };
    if (has("int")) return Kind::BigInt;
    if (has("char") || has("clob") || has("text")) return Kind::Text;
    if (has("blob")) return Kind::Blob;
    if (has("real") || has("floa") || has("doub")) return Kind::Double;
    return Kind::Text;
}

std::optional<Kind> KindOf(Dialect dialect, std::string_view name) {
    for (const auto& own : kOwnNames) {
        if (own.dialect == dialect && own.name == name) return own.kind;
    }
    for (const auto& known : kNames) {
        if (known.name == name) return known.kind;
    }
    return std::nullopt;
}

std::string Bound(int length) {
    return '(' + std::to_string(length) + ')';
}

int MostDigits(Dialect dialect) {
    return dialect == Dialect::MariaDb ? 65 : 38;
}

std::string DecimalBound(Dialect dialect, const ColumnType& type) {
    if (dialect == Dialect::Sqlite || dialect == Dialect::Postgresql) {
        return type.length == 0 ? ""
                                : '(' + std::to_string(type.length) + ',' + std::to_string(type.scale) + ')';
    }
    const int mostScale = dialect == Dialect::MariaDb ? 30 : 19;
    // On PostgreSQL, there may be more digits behind the point than in all, or fewer than none.
    const int wanted = std::max(type.length - std::min(type.scale, 0), type.scale);
    const int digits = type.length == 0 ? MostDigits(dialect) : std::min(wanted, MostDigits(dialect));
    const int scale =
        type.length == 0 ? mostScale : std::clamp(type.scale, 0, std::min({digits, mostScale * 2, 30}));
    return '(' + std::to_string(digits) + ',' + std::to_string(scale) + ')';
}

/// The most that a bounded type of this kind may have there.
int LongestBound(Dialect dialect, Kind kind) {
    const bool isFixed = kind == Kind::Char || kind == Kind::Binary;
    switch (dialect) {
        case Dialect::MariaDb:
            return isFixed ? 255 : 16000;
        case Dialect::SqlServer:
            return IsBytes(kind) ? 8000 : 4000;
        default:
            return 10485760;
    }
}

std::string_view PatternOf(Dialect dialect, Kind kind) {
    const auto& found = *std::find_if(kDeclarations.begin(), kDeclarations.end(),
                                      [kind](const Declaration& one) { return one.kind == kind; });
    switch (dialect) {
        case Dialect::Postgresql:
            return found.postgresql;
        case Dialect::MariaDb:
            return found.mariaDb;
        case Dialect::SqlServer:
            return found.sqlServer;
        default:
            return found.sqlite;
    }
}

/// A type that a key may be made of: there, no key holds a text of any length.
ColumnType Bounded(Dialect dialect, ColumnType type, int keyColumns) {
    if (keyColumns == 0 || (dialect != Dialect::MariaDb && dialect != Dialect::SqlServer)) return type;
    const int keyBytes = dialect == Dialect::MariaDb ? 3072 : 900;
    const int characterBytes = IsBytes(type.kind) ? 1 : (dialect == Dialect::MariaDb ? 4 : 2);
    const int most =
        std::min(keyBytes / keyColumns / characterBytes, dialect == Dialect::MariaDb ? 255 : 450);
    if (type.kind == Kind::Text || type.kind == Kind::Blob) {
        type.kind = type.kind == Kind::Text ? Kind::VarChar : Kind::VarBinary;
        type.length = most;
    }
    return type;
}

}  // namespace

bool IsInteger(Kind kind) {
    return kind == Kind::TinyInt || kind == Kind::SmallInt || kind == Kind::Integer || kind == Kind::BigInt;
}

bool IsBytes(Kind kind) {
    return kind == Kind::Binary || kind == Kind::VarBinary || kind == Kind::Blob;
}

bool IsApproximate(Kind kind) {
    return kind == Kind::Single || kind == Kind::Double;
}

ColumnType ReadType(Dialect dialect, std::string_view declared) {
    ColumnType type;
    type.declared = declared;
    Words words = Split(declared);
    words.name = platform::TrimBlanks(platform::ReplaceAll(words.name, " zerofill", ""));
    for (const std::string_view number : {"decimal", "float", "double"}) {
        if (words.name.starts_with(number) && words.name.ends_with(" unsigned")) words.name = number;
    }
    const int first = words.numbers.empty() ? 0 : words.numbers[0];
    const auto kind = KindOf(dialect, words.name);
    type.kind = kind.value_or(dialect == Dialect::Sqlite ? AffinityOf(words.name) : Kind::Text);
    switch (type.kind) {
        case Kind::Decimal:
            type.length = first;
            type.scale = words.numbers.size() > 1 ? words.numbers[1] : 0;
            break;
        case Kind::Char:
        case Kind::VarChar:
            type.length = first;
            if (first == 0) type.kind = Kind::Text;
            break;
        case Kind::Binary:
        case Kind::VarBinary:
            type.length = first;
            if (first == 0) type.kind = Kind::Blob;
            break;
        default:
            break;
    }
    if (words.name == "money" || words.name == "smallmoney" || words.name == "currency") {
        type.kind = Kind::Decimal;
        type.length = 19;
        type.scale = 4;
    }
    if (dialect == Dialect::MariaDb) {
        if (words.name == "tinyint" && first == 1) type.kind = Kind::Boolean;
        if (words.name == "bit" && first > 1) type.kind = Kind::BigInt;
        if (words.name == "bigint unsigned" || (words.name == "bit" && first > 63)) {
            type.kind = Kind::Decimal;
            type.length = 20;
        }
    }
    return type;
}

std::string TypeText(Dialect dialect, const ColumnType& type, int keyColumns) {
    ColumnType bounded = Bounded(dialect, type, keyColumns);
    const bool isBounded = bounded.kind == Kind::Char || bounded.kind == Kind::VarChar ||
                           bounded.kind == Kind::Binary || bounded.kind == Kind::VarBinary;
    if (isBounded && bounded.length > LongestBound(dialect, bounded.kind)) {
        if (bounded.kind == Kind::Char && bounded.length <= LongestBound(dialect, Kind::VarChar)) {
            bounded.kind = Kind::VarChar;
        } else {
            bounded.kind = IsBytes(bounded.kind) ? Kind::Blob : Kind::Text;
        }
    }
    const std::string_view pattern = PatternOf(dialect, bounded.kind);
    if (!pattern.ends_with('%')) return std::string(pattern);
    std::string text(pattern.substr(0, pattern.size() - 1));
    if (bounded.kind == Kind::Decimal) return text + DecimalBound(dialect, bounded);
    return text + Bound(bounded.length);
}

}  // namespace halvtiv::cli::copy
