#pragma once

#include <string>
#include <vector>

#include "ado/odbc/odbc_session.hpp"

namespace halvtiv::ado {

/// A table as the catalog names it; "" for a part that is not known.
struct OdbcTableName {
    std::string catalog;
    std::string schema;
    std::string table;
    bool operator==(const OdbcTableName&) const = default;
};

/// The columns of a table's primary key, else of a unique index whose columns are all filled; none where the
/// table has neither.
std::vector<std::string> FindOdbcKey(OdbcSession& session, const OdbcTableName& table);

/// Whether it is a table that holds rows of its own, not a view.
bool IsOdbcTable(OdbcSession& session, const OdbcTableName& table);

/// Whether the database has any table, be it one of its own.
bool HasOdbcTables(OdbcSession& session);

/// The names of a table's columns.
std::vector<std::string> FindOdbcColumns(OdbcSession& session, const OdbcTableName& table);

/// A name as it stands in a statement.
std::string QuotedOdbcName(const OdbcTraits& traits, std::string_view name);
std::string QuotedOdbcName(const OdbcTraits& traits, const OdbcTableName& table);

}  // namespace halvtiv::ado
