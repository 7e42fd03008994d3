#include "ado/odbc/odbc_traits.hpp"

#include <array>

#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

// Names in ASCII, whatever the driver speaks.
std::string InfoText(SQLHDBC connection, SQLUSMALLINT item) {
    std::array<char, 256> text{};
    SQLSMALLINT length = 0;
    const auto status = SQLGetInfo(connection, item, text.data(), text.size(), &length);
    return SQL_SUCCEEDED(status) ? std::string(text.data()) : std::string();
}

template <typename Number>
Number InfoNumber(SQLHDBC connection, SQLUSMALLINT item, Number otherwise) {
    Number number = otherwise;
    const auto status = SQLGetInfo(connection, item, &number, sizeof number, nullptr);
    return SQL_SUCCEEDED(status) ? number : otherwise;
}

OdbcDialect DialectOf(const std::string& databaseName, const std::string& driverName) {
    const auto database = platform::ToLower(databaseName);
    const auto driver = platform::ToLower(driverName);
    if (database.find("mdbtools") != std::string::npos || driver.find("mdbodbc") != std::string::npos) {
        return OdbcDialect::Access;
    }
    if (database.find("sqlite") != std::string::npos) return OdbcDialect::Sqlite;
    if (database.find("mariadb") != std::string::npos || database.find("mysql") != std::string::npos) {
        return OdbcDialect::MariaDb;
    }
    if (database.find("postgres") != std::string::npos) return OdbcDialect::PostgreSql;
    if (database.find("sql server") != std::string::npos) return OdbcDialect::SqlServer;
    return OdbcDialect::Other;
}

}  // namespace

bool IsNarrowOdbcDriver(std::string_view name) {
    const auto lower = platform::ToLower(name);
    const bool isWideMdb = lower.find("mdbodbcw") != std::string::npos;
    return lower.find("sqlite") != std::string::npos || lower.find("psqlodbca") != std::string::npos ||
           (lower.find("mdb") != std::string::npos && !isWideMdb);
}

OdbcTraits ReadOdbcTraits(SQLHDBC connection) {
    OdbcTraits traits;
    traits.databaseName = InfoText(connection, SQL_DBMS_NAME);
    const auto driverName = InfoText(connection, SQL_DRIVER_NAME);
    traits.dialect = DialectOf(traits.databaseName, driverName);
    if (traits.dialect == OdbcDialect::Access) traits.databaseName = "Access";
    if (traits.databaseName.empty()) traits.databaseName = "ODBC";
    traits.isWide = !IsNarrowOdbcDriver(driverName.empty() ? traits.databaseName : driverName);
    // Connected with utf8mb4, that driver gives UTF-8 as it comes from the server.
    traits.readsWide = traits.isWide && traits.dialect != OdbcDialect::MariaDb;
    // SQL Server's statements need no ";" between them and share variables: they cannot be told apart here.
    traits.splitsScripts =
        (traits.dialect != OdbcDialect::SqlServer && traits.dialect != OdbcDialect::Other) ||
        InfoText(connection, SQL_MULT_RESULT_SETS) == "N";
    traits.hasOneResult = traits.dialect == OdbcDialect::MariaDb ||
                          InfoNumber<SQLUSMALLINT>(connection, SQL_MAX_CONCURRENT_ACTIVITIES, 0) == 1;
    traits.bindsColumns = traits.dialect != OdbcDialect::Access;
    SQLUSMALLINT hasMoreResults = SQL_TRUE;
    SQLGetFunctions(connection, SQL_API_SQLMORERESULTS, &hasMoreResults);
    traits.hasMoreResults = hasMoreResults == SQL_TRUE;
    traits.keepsResultsAtEnd =
        InfoNumber<SQLUSMALLINT>(connection, SQL_CURSOR_COMMIT_BEHAVIOR, SQL_CB_CLOSE) == SQL_CB_PRESERVE &&
        InfoNumber<SQLUSMALLINT>(connection, SQL_CURSOR_ROLLBACK_BEHAVIOR, SQL_CB_CLOSE) == SQL_CB_PRESERVE;
    traits.hasTransactions =
        InfoNumber<SQLUSMALLINT>(connection, SQL_TXN_CAPABLE, SQL_TC_ALL) != SQL_TC_NONE &&
        traits.dialect != OdbcDialect::Access;
    // Begun by a statement, SQLite's takes the write lock at once, and MariaDB's is seen to end when a
    // definition commits it.
    traits.beginsBySql = traits.dialect == OdbcDialect::Sqlite || traits.dialect == OdbcDialect::MariaDb;
    traits.getDataExtensions = InfoNumber<SQLUINTEGER>(connection, SQL_GETDATA_EXTENSIONS, 0);
    // It says that it can, and gives the last row's cells where rows are not kept in its memory.
    if (traits.dialect == OdbcDialect::MariaDb) traits.getDataExtensions &= ~SQLUINTEGER{SQL_GD_BLOCK};
    traits.nameQuote = InfoText(connection, SQL_IDENTIFIER_QUOTE_CHAR);
    if (traits.nameQuote == " ") traits.nameQuote.clear();
    return traits;
}

}  // namespace halvtiv::ado
