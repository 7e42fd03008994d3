#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sql/dialect.hpp"

namespace halvtiv::sql {

/// A table's name as a statement spells it, without quotes.
struct TableName {
    std::string schema;  ///< "" where none is written
    std::string name;
};

/// A query whose rows are rows of its tables, taken apart so that its select list can be written anew. It
/// refers to the query's text.
struct SelectQuery {
    struct Item {
        std::string_view text;  ///< may end in a line comment
        bool isStar = false;    ///< * or t.*
        bool hasQuery = false;  ///< a subquery stands in it: databases name its column as the item's origin
        /// The last name of a plain column reference, without quotes; "" where the item is anything else.
        std::string column;
    };
    /// A SELECT that the rows pass through: of the query itself, of its derived tables and CTEs. Offsets
    /// count from the begin of `text`.
    struct Level {
        std::size_t conditionEnd = 0;  ///< behind FROM and WHERE, where ORDER BY may stand
        std::size_t end = 0;           ///< behind its last clause
        bool hasCall = false;          ///< its select list calls a function, which may be an aggregate
    };

    Dialect dialect = Dialect::Generic;
    std::string_view text;     ///< the query, without ";" and what follows
    std::string_view opening;  ///< up to the select list, with the WITH clause
    std::vector<Item> items;   ///< of the outermost select list
    std::string_view tail;     ///< from FROM to the end
    /// The tables that the rows come from, each as often as it is named, also in derived tables and CTEs.
    std::vector<TableName> tables;
    bool hasOtherSources = false;  ///< rows come from a table function or the like, too
    bool ordersByNumber = false;   ///< ORDER BY may count columns
    bool renamesColumns = false;   ///< a derived table, a CTE or an alias may rename the tables' columns
    std::vector<Level> levels;     ///< the outermost last

    /// Whether a name stands in `tail`, in any letter case.
    bool TailNames(std::string_view name) const;
    /// The query with another select list. Each item stands on a line of its own.
    std::string WithItems(std::span<const std::string> newItems) const;
    /// The query with ORDER BY and all behind it replaced at one level, to ask the database about it.
    std::string OrderedBy(const Level& level, std::string_view expression) const;
};

/// Takes one query apart by its reserved words. Nothing where its own grammar makes other rows than its
/// tables have: DISTINCT, GROUP BY, HAVING, set operators, VALUES, INTO, TOP. Aggregates are not seen: the
/// database tells those.
std::optional<SelectQuery> ReadSelectQuery(std::string_view statement, Dialect dialect);

/// What a recordset's source is by its form.
enum class SourceForm {
    Statement,
    TableName,  ///< schema.table, or a name in quotes
    Word        ///< a table's name, or a statement of one word such as COMMIT
};
SourceForm FormOfSource(std::string_view source, Dialect dialect);

/// The query for all of a table; the name stays as it is written.
std::string SelectAllFrom(std::string_view tableName);

}  // namespace halvtiv::sql
