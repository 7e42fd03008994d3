#pragma once

#include <string_view>

#include "sql/dialect.hpp"

namespace halvtiv::sql {

/// Whether a statement would commit an open transaction without being told to: an implicit commit, as by
/// MariaDB's CREATE TABLE or by BEGIN inside a transaction. COMMIT and ROLLBACK do not count: they say what
/// they do. A session refuses such a statement while its caller has a transaction open. What this table does
/// not know (a procedure that commits), the database's own transaction state shows afterwards.
bool CausesImplicitCommit(std::string_view statement, Dialect dialect);

}  // namespace halvtiv::sql
