#include <string>

#include "ado/errors.hpp"
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
        if (!IsAccessFile(parameters.Get("Data Source"))) return OpenSqliteSession;
    }
    RaiseAdoError(AdoError::ProviderNotFound);
}

}  // namespace halvtiv::ado
