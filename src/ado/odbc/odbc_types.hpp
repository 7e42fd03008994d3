#pragma once

#include <sql.h>
#include <sqlext.h>

#include <cstdint>
#include <string>
#include <vector>

#include "ado/odbc/odbc_traits.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

/// How a column's cells come from the driver.
enum class OdbcForm : std::uint8_t {
    Text,      ///< UTF-8
    WideText,  ///< UTF-16
    Binary,
    Integer,
    Double,
    Single,
    Boolean,
    Date,
    Timestamp
};

struct OdbcColumn {
    ColumnInfo info;
    OdbcForm form = OdbcForm::Text;
    SQLSMALLINT cType = SQL_C_CHAR;
    /// Bytes of a bound cell; 0: too long to be bound, fetched when it is asked for.
    std::size_t cellSize = 0;
    bool isAutoNumber = false;
    bool isComparable = true;  ///< the database knows whether it is equal to a value that it is given

    bool IsBound() const noexcept { return cellSize > 0; }
};

/// The columns of a prepared or running statement.
std::vector<OdbcColumn> DescribeOdbcColumns(SQLHSTMT statement, const OdbcTraits& traits);

/// A text about a column, "" where the driver has none.
std::string OdbcColumnText(SQLHSTMT statement, SQLUSMALLINT column, SQLUSMALLINT item, bool isWide);
/// A number about a column, 0 where the driver has none.
SQLLEN OdbcColumnNumber(SQLHSTMT statement, SQLUSMALLINT column, SQLUSMALLINT item);

}  // namespace halvtiv::ado
