#include "ado/sqlite/sqlite_types.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <utility>

#include "ado/data_type_traits.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::array<std::pair<std::string_view, std::int32_t>, 34> kNamedTypes{{
    {"INTEGER", adBigInt},
    {"INT", adBigInt},
    {"BIGINT", adBigInt},
    {"SMALLINT", adSmallInt},
    {"TINYINT", adUnsignedTinyInt},
    {"BOOLEAN", adBoolean},
    {"BIT", adBoolean},
    {"REAL", adDouble},
    {"DOUBLE", adDouble},
    {"FLOAT", adDouble},
    {"NUMERIC", adNumeric},
    {"DECIMAL", adNumeric},
    {"MONEY", adCurrency},
    {"CURRENCY", adCurrency},
    {"DATE", adDBDate},
    {"TIME", adDBTime},
    {"DATETIME", adDBTimeStamp},
    {"TIMESTAMP", adDBTimeStamp},
    {"CHAR", adWChar},
    {"NCHAR", adWChar},
    {"VARCHAR", adVarWChar},
    {"NVARCHAR", adVarWChar},
    {"TEXT", adVarWChar},
    {"MEMO", adLongVarWChar},
    {"NTEXT", adLongVarWChar},
    {"CLOB", adLongVarWChar},
    {"LONGTEXT", adLongVarWChar},
    {"BINARY", adBinary},
    {"VARBINARY", adVarBinary},
    {"BLOB", adLongVarBinary},
    {"IMAGE", adLongVarBinary},
    {"LONGVARBINARY", adLongVarBinary},
    {"UNIQUEIDENTIFIER", adGUID},
    {"GUID", adGUID},
}};

// The database's own rule for other names: the first of these that the name contains.
constexpr std::array<std::pair<std::string_view, std::int32_t>, 8> kTypesByPart{{
    {"INT", adBigInt},
    {"CHAR", adVarWChar},
    {"CLOB", adVarWChar},
    {"TEXT", adVarWChar},
    {"BLOB", adLongVarBinary},
    {"REAL", adDouble},
    {"FLOA", adDouble},
    {"DOUB", adDouble},
}};

std::string UpperAscii(std::string_view text) {
    std::string upper(text);
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
    return upper;
}

std::int32_t TypeOfName(std::string_view name) {
    for (const auto& [listed, type] : kNamedTypes) {
        if (name == listed) return type;
    }
    for (const auto& [part, type] : kTypesByPart) {
        if (name.find(part) != std::string_view::npos) return type;
    }
    return 0;
}

}  // namespace

bool HasTextAffinity(std::string_view declared) {
    const std::string name = UpperAscii(declared);
    const auto holds = [&](const char* part) { return name.find(part) != std::string::npos; };
    return !holds("INT") && (holds("CHAR") || holds("CLOB") || holds("TEXT"));
}

DeclaredType ReadDeclaredType(std::string_view declared) {
    std::string name = UpperAscii(declared.substr(0, declared.find('(')));
    name.erase(name.find_last_not_of(' ') + 1);
    DeclaredType result{TypeOfName(name), 0};
    if (const auto digits = declared.find_first_of("0123456789", name.size());
        digits != std::string_view::npos && FixedSizeOf(result.type) == 0) {
        std::from_chars(declared.data() + digits, declared.data() + declared.size(), result.size);
    }
    return result;
}

std::int32_t TypeOfValue(sqlite3_stmt* statement, int column) {
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_INTEGER:
            return adBigInt;
        case SQLITE_FLOAT:
            return adDouble;
        case SQLITE_BLOB:
            return adLongVarBinary;
        default:
            return adVarWChar;
    }
}

std::int64_t DefinedSizeOf(DeclaredType declared, std::int64_t unbounded) {
    if (const auto size = FixedSizeOf(declared.type)) return size;
    return declared.size > 0 ? std::min(declared.size, unbounded) : unbounded;
}

}  // namespace halvtiv::ado
