#include "ado/odbc/odbc_types.hpp"

#include <algorithm>
#include <array>
#include <limits>
#include <span>

#include "ado/data_type_traits.hpp"
#include "ado/odbc/odbc_text.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

// Types of SQL Server that the standard lacks.
constexpr SQLLEN kUdtType = -151;
constexpr SQLLEN kXmlType = -152;
constexpr SQLLEN kTime2Type = -154;

// Cells above this are not bound: a block of them would take more memory than it saves calls.
constexpr SQLLEN kLongestBound = 8192;
constexpr std::int64_t kUnbounded = std::numeric_limits<std::int32_t>::max();

struct Facts {
    SQLLEN type = SQL_VARCHAR;
    SQLLEN length = 0;  // characters or bytes; 0 and less: no bound
    bool isUnsigned = false;
    bool isNullable = true;
    bool isReadOnly = false;
    std::string typeName;  // in lower case
};

std::int32_t IntegerType(std::int32_t plain, std::int32_t ofUnsigned, const Facts& facts) {
    return facts.isUnsigned ? ofUnsigned : plain;
}

std::int32_t TypeOf(const Facts& facts, const OdbcTraits& traits) {
    // A text of up to 64 KiB is what their users write for a text without a bound.
    constexpr SQLLEN kMostOfText = 65536;
    const bool mayBeText = traits.dialect == OdbcDialect::MariaDb || traits.dialect == OdbcDialect::Sqlite ||
                           traits.dialect == OdbcDialect::PostgreSql;
    switch (facts.type) {
        case SQL_BIT:
            return adBoolean;
        case SQL_TINYINT:
            return IntegerType(adTinyInt, adUnsignedTinyInt, facts);
        case SQL_SMALLINT:
            return IntegerType(adSmallInt, adUnsignedSmallInt, facts);
        case SQL_INTEGER:
            return IntegerType(adInteger, adUnsignedInt, facts);
        case SQL_BIGINT:
            return IntegerType(adBigInt, adUnsignedBigInt, facts);
        case SQL_REAL:
            return adSingle;
        case SQL_FLOAT:
        case SQL_DOUBLE:
            return adDouble;
        case SQL_NUMERIC:
        case SQL_DECIMAL:
            return facts.typeName.find("money") != std::string::npos ? adCurrency : adNumeric;
        case SQL_DATE:
        case SQL_TYPE_DATE:
            return adDBDate;
        case SQL_TIME:
        case SQL_TYPE_TIME:
        case kTime2Type:
            return adDBTime;
        case SQL_TIMESTAMP:
        case SQL_TYPE_TIMESTAMP:
            return adDBTimeStamp;
        case SQL_GUID:
            return adGUID;
        case SQL_CHAR:
            return adChar;
        case SQL_WCHAR:
            return adWChar;
        case SQL_LONGVARCHAR:
        case SQL_WLONGVARCHAR:
            if (mayBeText && facts.length <= kMostOfText) return adVarWChar;
            return facts.type == SQL_LONGVARCHAR ? adLongVarChar : adLongVarWChar;
        case kXmlType:
            return adLongVarWChar;
        case SQL_BINARY:
            return adBinary;
        case SQL_VARBINARY:
        case kUdtType:
            return facts.length > 0 ? adVarBinary : adLongVarBinary;
        case SQL_LONGVARBINARY:
            return adLongVarBinary;
        case SQL_VARCHAR:
            return adVarChar;
        default:
            return adVarWChar;
    }
}

// SQLite's driver calls what it does not know a text, and says what the table's creator has written.
SQLLEN TypeOfDeclared(const Facts& facts) {
    const auto begins = [&](std::string_view word) { return facts.typeName.starts_with(word); };
    if (begins("decimal") || begins("numeric")) return SQL_DECIMAL;
    return begins("guid") || begins("uniqueidentifier") ? SQL_GUID : facts.type;
}

std::int64_t SizeOf(std::int32_t type, const Facts& facts) {
    if (const auto size = FixedSizeOf(type)) return size;
    return facts.length > 0 ? std::min<std::int64_t>(facts.length, kUnbounded) : kUnbounded;
}

std::int32_t AttributesOf(std::int32_t type, const Facts& facts) {
    std::int32_t attributes = 0;
    if (facts.isNullable) attributes |= adFldIsNullable | adFldMayBeNull;
    if (!facts.isReadOnly) attributes |= adFldUpdatable;
    return attributes | AttributesOfType(type);
}

// What the driver is asked for. A column may hold what its type does not say where the database allows that;
// its texts are then the only form that loses nothing.
OdbcForm FormOf(std::int32_t type, const OdbcTraits& traits) {
    const auto text = traits.readsWide ? OdbcForm::WideText : OdbcForm::Text;
    const bool hasLooseTypes = traits.dialect == OdbcDialect::Sqlite || traits.dialect == OdbcDialect::Access;
    if (IsBytesType(type)) return OdbcForm::Binary;
    if (type == adDouble && traits.dialect != OdbcDialect::Access) return OdbcForm::Double;
    if (type == adSingle && traits.dialect != OdbcDialect::Access) return OdbcForm::Single;
    if (hasLooseTypes) return text;
    switch (type) {
        case adTinyInt:
        case adUnsignedTinyInt:
        case adSmallInt:
        case adUnsignedSmallInt:
        case adInteger:
        case adUnsignedInt:
        case adBigInt:
            return OdbcForm::Integer;
        case adBoolean:
            return OdbcForm::Boolean;
        case adDBDate:
            return OdbcForm::Date;
        case adDBTimeStamp:
            return OdbcForm::Timestamp;
        default:
            return text;
    }
}

SQLSMALLINT CTypeOf(OdbcForm form) {
    switch (form) {
        case OdbcForm::WideText:
            return SQL_C_WCHAR;
        case OdbcForm::Binary:
            return SQL_C_BINARY;
        case OdbcForm::Integer:
            return SQL_C_SBIGINT;
        case OdbcForm::Double:
            return SQL_C_DOUBLE;
        case OdbcForm::Single:
            return SQL_C_FLOAT;
        case OdbcForm::Boolean:
            return SQL_C_BIT;
        case OdbcForm::Date:
            return SQL_C_TYPE_DATE;
        case OdbcForm::Timestamp:
            return SQL_C_TYPE_TIMESTAMP;
        default:
            return SQL_C_CHAR;
    }
}

// With the NUL that the driver puts behind a text.
std::size_t CellSizeOf(const OdbcColumn& column, const Facts& facts) {
    const auto bounded = [](SQLLEN size) {
        return size > kLongestBound ? std::size_t{0} : static_cast<std::size_t>(size);
    };
    const auto type = column.info.type;
    if (IsLongType(type)) return 0;
    constexpr SQLLEN kLongestNumber = 80;  // and dates and GUIDs
    switch (column.form) {
        case OdbcForm::Text:
            if (!IsTextType(type)) return kLongestNumber;
            return facts.length > 0 && facts.length <= kLongestBound ? bounded(facts.length * 4 + 1) : 0;
        case OdbcForm::WideText:
            if (!IsTextType(type)) return kLongestNumber * sizeof(SQLWCHAR);
            return facts.length > 0 && facts.length <= kLongestBound ? bounded(facts.length * 4 + 2) : 0;
        case OdbcForm::Binary:
            return facts.length > 0 ? bounded(facts.length) : 0;
        case OdbcForm::Integer:
            return sizeof(SQLBIGINT);
        case OdbcForm::Double:
            return sizeof(SQLDOUBLE);
        case OdbcForm::Single:
            return sizeof(SQLREAL);
        case OdbcForm::Boolean:
            return sizeof(SQLCHAR);
        case OdbcForm::Date:
            return sizeof(SQL_DATE_STRUCT);
        case OdbcForm::Timestamp:
            return sizeof(SQL_TIMESTAMP_STRUCT);
    }
    return 0;
}

OdbcColumn Describe(SQLHSTMT statement, SQLUSMALLINT number, const OdbcTraits& traits) {
    Facts facts;
    SQLSMALLINT type = SQL_VARCHAR;
    SQLULEN length = 0;
    SQLSMALLINT digits = 0;
    SQLSMALLINT nullable = SQL_NULLABLE_UNKNOWN;
    SQLSMALLINT nameLength = 0;
    SQLDescribeCol(statement, number, nullptr, 0, &nameLength, &type, &length, &digits, &nullable);
    facts.type = type;
    facts.length = static_cast<SQLLEN>(length);
    facts.isNullable = nullable != SQL_NO_NULLS;
    facts.isUnsigned = OdbcColumnNumber(statement, number, SQL_DESC_UNSIGNED) == SQL_TRUE;
    facts.isReadOnly = OdbcColumnNumber(statement, number, SQL_DESC_UPDATABLE) == SQL_ATTR_READONLY;
    facts.typeName = platform::ToLower(OdbcColumnText(statement, number, SQL_DESC_TYPE_NAME, traits.isWide));
    // The length of such a column is none that it keeps to.
    const bool isBlob = facts.type == SQL_BINARY && facts.typeName == "blob";
    if (isBlob) facts.type = SQL_LONGVARBINARY, facts.length = 0;
    if (traits.dialect == OdbcDialect::Sqlite) facts.type = TypeOfDeclared(facts);
    const bool isBits = facts.type == SQL_BINARY && facts.typeName == "bit";
    if (isBits) facts.length = (facts.length + 7) / 8;
    // No table's column: what an expression makes is a text of the row, however long it may become.
    const bool isText = facts.type == SQL_LONGVARCHAR || facts.type == SQL_WLONGVARCHAR;
    if (isText && traits.dialect == OdbcDialect::MariaDb &&
        OdbcColumnText(statement, number, SQL_DESC_BASE_TABLE_NAME, traits.isWide).empty()) {
        facts.type = SQL_WVARCHAR;
    }
    OdbcColumn column;
    column.info.name = OdbcColumnText(statement, number, SQL_DESC_LABEL, traits.isWide);
    column.info.type = TypeOf(facts, traits);
    column.info.attributes = AttributesOf(column.info.type, facts);
    column.info.definedSize = SizeOf(column.info.type, facts);
    column.isComparable = !isBits;  // which MariaDB finds equal to no bytes
    column.form = FormOf(column.info.type, traits);
    column.cType = CTypeOf(column.form);
    if (traits.bindsColumns) column.cellSize = CellSizeOf(column, facts);
    column.isAutoNumber = OdbcColumnNumber(statement, number, SQL_DESC_AUTO_UNIQUE_VALUE) == SQL_TRUE;
    return column;
}

}  // namespace

std::string OdbcColumnText(SQLHSTMT statement, SQLUSMALLINT column, SQLUSMALLINT item, bool isWide) {
    SQLSMALLINT length = 0;
    std::string text;
    if (isWide) {
        std::array<SQLWCHAR, 1024> wide{};
        if (SQL_SUCCEEDED(SQLColAttributeW(statement, column, item, wide.data(),
                                           static_cast<SQLSMALLINT>(sizeof wide), &length, nullptr))) {
            const auto* const end = std::find(wide.begin(), wide.end() - 1, SQLWCHAR{0});
            AppendUtf8(text, std::span<const SQLWCHAR>(wide.data(), end));
        }
    } else {
        std::array<char, 1024> narrow{};
        if (SQL_SUCCEEDED(SQLColAttribute(statement, column, item, narrow.data(),
                                          static_cast<SQLSMALLINT>(narrow.size() - 1), &length, nullptr))) {
            text = narrow.data();
        }
    }
    return text;
}

SQLLEN OdbcColumnNumber(SQLHSTMT statement, SQLUSMALLINT column, SQLUSMALLINT item) {
    SQLLEN number = 0;
    const auto status = SQLColAttribute(statement, column, item, nullptr, 0, nullptr, &number);
    return SQL_SUCCEEDED(status) ? number : 0;
}

std::vector<OdbcColumn> DescribeOdbcColumns(SQLHSTMT statement, const OdbcTraits& traits) {
    SQLSMALLINT count = 0;
    SQLNumResultCols(statement, &count);
    std::vector<OdbcColumn> columns;
    for (SQLSMALLINT i = 1; i <= count; ++i) {
        columns.push_back(Describe(statement, static_cast<SQLUSMALLINT>(i), traits));
    }
    // Where cells are fetched only behind the bound ones, nothing behind the first of them is bound.
    bool mayBind = true;
    for (auto& column : columns) {
        if (!column.IsBound() && (traits.getDataExtensions & SQL_GD_ANY_COLUMN) == 0) mayBind = false;
        if (!mayBind) column.cellSize = 0;
    }
    return columns;
}

}  // namespace halvtiv::ado
