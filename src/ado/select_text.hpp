#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ado/sql_scanner.hpp"

namespace halvtiv::ado {

/// A query whose rows are rows of its tables, taken apart so that its select list can be written anew: no
/// DISTINCT, no grouping, no aggregate, no compound, no WITH.
struct SelectText {
    struct TableRef {
        std::string schema;  ///< without quotes; "" where none is named
        std::string name;
    };

    std::string_view opening;             ///< the text up to the select list
    std::vector<std::string_view> items;  ///< of the select list
    std::string_view tail;                ///< from FROM to the end of the statement
    std::vector<TableRef> tables;         ///< of FROM; none where one of them is no plain name
    bool ordersByNumber = false;          ///< ORDER BY may count columns
    SqlDialect dialect = SqlDialect::Common;

    /// Whether a name stands in `tail` as a word or a quoted name, in any letter case.
    bool TailNames(std::string_view name) const;
};

/// Reads one statement; nothing where it is no such query.
std::optional<SelectText> ReadSelectText(std::string_view statement, SqlDialect dialect = SqlDialect::Common);

/// Whether a select list's item has a query in it. Databases name that query's column as the item's origin.
bool HoldsQuery(std::string_view item);

/// Whether a select list's item is "*" or "NAME.*".
bool IsStarItem(std::string_view item);

}  // namespace halvtiv::ado
