#pragma once

#include <sql.h>
#include <sqlext.h>

#include <string>

namespace halvtiv::ado {

enum class OdbcDialect { Sqlite, Access, MariaDb, PostgreSql, SqlServer, Other };

/// What a driver and its database can do, found out once a connection.
struct OdbcTraits {
    OdbcDialect dialect = OdbcDialect::Other;
    std::string databaseName;        ///< the source of errors
    bool isWide = true;              ///< statements, names and messages are UTF-16, else UTF-8
    bool readsWide = true;           ///< texts come as UTF-16, else as UTF-8
    bool splitsScripts = false;      ///< it gets one statement at a time
    bool hasMoreResults = true;      ///< a statement may give several results
    bool hasOneResult = false;       ///< nothing else runs while rows are left to be read
    bool bindsColumns = true;        ///< rows come in blocks, into memory that is bound
    bool keepsResultsAtEnd = false;  ///< open results outlive the end of a transaction
    bool hasTransactions = true;
    bool beginsBySql = false;           ///< transactions are begun and ended by statements, not by the driver
    SQLUINTEGER getDataExtensions = 0;  ///< what SQLGetData can do beyond the least
    std::string nameQuote;              ///< stands around names; "" where nothing can
};

/// Asks an open connection.
OdbcTraits ReadOdbcTraits(SQLHDBC connection);

/// Whether a driver takes UTF-8, by its own or its file's name.
bool IsNarrowOdbcDriver(std::string_view name);

}  // namespace halvtiv::ado
