#pragma once

#include <sql.h>

#include <memory>
#include <span>
#include <string>

#include "ado/odbc/odbc_session.hpp"
#include "ado/odbc/odbc_types.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

/// How a query is run so that its rows can be changed.
struct OdbcPlan {
    std::string text;  ///< with the key columns that the query lacks, behind its own
    std::shared_ptr<const ChangeTarget> target;
};

/// Plans a query that has been prepared as it stands. Without a target where its rows cannot be changed: they
/// are not those of a table. Where nothing tells a table's rows apart, its target has no key: for new rows
/// only.
OdbcPlan PlanOdbcQuery(OdbcSession& session, SQLHSTMT statement, const std::string& text,
                       std::span<const OdbcColumn> columns);

}  // namespace halvtiv::ado
