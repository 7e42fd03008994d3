#pragma once

#include <libpq-fe.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ado/provider.hpp"

namespace halvtiv::ado {

class PostgresqlSession;

/// How a query is run so that large values stay in the database until they are asked for, and so that its
/// rows can be changed: with another select list, to which the row's key is added.
struct PostgresqlPlan {
    std::string text;                       ///< what is prepared instead of the query
    std::vector<std::int32_t> sizeColumns;  ///< for each visible column, see `PostgresqlColumn`
    std::vector<std::string> names;         ///< for each visible column: its name as it stands in a statement
    std::string table;                      ///< of the values that stay, as it stands in a statement
    std::vector<ChangeTarget::KeyColumn> key;    ///< by which they are found
    std::shared_ptr<const ChangeTarget> target;  ///< null where the rows cannot be changed
    std::int32_t width = 0;                      ///< columns of a row, the invisible ones included

    bool HasDeferred() const;
};

/// Bytes up to this length come with their row: fetching them apart would take longer.
inline constexpr std::int64_t kPostgresqlBytesInRow = 4096;

/// Plans a query; text is its text, description what the server says of its columns. Nothing where it is best
/// run as it is. Sees the database's catalogue.
std::optional<PostgresqlPlan> PlanPostgresqlQuery(PostgresqlSession& session, std::string_view text,
                                                  const PGresult* description,
                                                  std::span<const ColumnInfo> columns, Purpose purpose);

}  // namespace halvtiv::ado
