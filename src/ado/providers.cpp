#include <string>

#include "ado/access_file.hpp"
#include "ado/errors.hpp"
#include "ado/odbc/odbc_provider.hpp"
#include "ado/postgresql/postgresql_open.hpp"
#include "ado/provider.hpp"
#include "ado/sqlite/sqlite_file.hpp"
#include "ado/sqlite/sqlite_session.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {

OpenSession FindProvider(const ConnectionParameters& parameters) {
    const auto name = platform::ToLower(parameters.Get("Provider"));
    if (name == "sqlite") return OpenSqliteSession;
    if (name == "postgresql") return OpenPostgresqlSession;
    if (name == "microsoft.jet.oledb.4.0" || name == "microsoft.ace.oledb.12.0") {
        return IsAccessFile(parameters.Get("Data Source")) ? OpenAccessSession : OpenSqliteSession;
    }
    if (name == "mariadb" || name == "mysql") return OpenMariaDbSession;
    if (name == "sqloledb" || name == "sqloledb.1" || name == "msoledbsql") return OpenSqlServerSession;
    if (name == "msdasql" || name == "msdasql.1") return OpenOdbcSession;
    if (name.empty() && (parameters.Find("DSN") || parameters.Find("Driver"))) return OpenOdbcSession;
    RaiseAdoError(AdoError::ProviderNotFound);
}

}  // namespace halvtiv::ado
