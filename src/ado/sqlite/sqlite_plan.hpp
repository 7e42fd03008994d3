#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ado/provider.hpp"

struct sqlite3;
struct sqlite3_stmt;

namespace halvtiv::ado {

/// How a query is run so that long values stay in the database until they are asked for, and so that its rows
/// can be changed: with another select list, to which the row's key is added.
struct SqlitePlan {
    std::string text;                ///< what is prepared instead of the query
    std::vector<bool> deferred;      ///< for each visible column: its texts and bytes are read by row id
    std::vector<std::string> names;  ///< for each visible column: its name in the table, "" for none
    std::string schema;              ///< of the table that the deferred values are in
    std::string table;
    std::int32_t rowIdColumn = -1;               ///< where the row's id stands; -1: it was not added
    std::shared_ptr<const ChangeTarget> target;  ///< null where the rows cannot be changed

    bool HasDeferred() const;
};

/// Plans a query that has been prepared as it stands; text is its text, columns what is known of its columns.
/// Nothing where it is best run as it is: it has no long values to leave aside, or its rows are not those of
/// a table.
std::optional<SqlitePlan> PlanSqliteQuery(sqlite3_stmt* statement, std::string_view text,
                                          std::span<const ColumnInfo> columns, Purpose purpose);

}  // namespace halvtiv::ado
