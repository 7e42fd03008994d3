#pragma once

#include <cstdlib>
#include <string>

namespace halvtiv::test {

// Connection strings of the databases that tests may use and empty. Where one is "", its tests are skipped.

inline std::string FromEnvironment(const char* variable) {
    const char* const value = std::getenv(variable);
    return value ? value : "";
}

/// A database of a MariaDB server.
inline std::string MariaDbConnectionString() {
    return FromEnvironment("HALVTIV_TEST_MARIADB");
}

/// A database of a PostgreSQL server, through its ODBC driver.
inline std::string PostgreSqlOdbcConnectionString() {
    return FromEnvironment("HALVTIV_TEST_POSTGRESQL_ODBC");
}

/// A SQLite file through its ODBC driver; the file is made when it is missing.
inline std::string SqliteOdbcConnectionString(const std::string& path) {
    return "Driver=SQLite3;Database=" + path;
}

}  // namespace halvtiv::test
