#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ado/provider.hpp"
#include "sql/dialect.hpp"
#include "sql/quoting.hpp"
#include "sql/select_query.hpp"

namespace halvtiv::ado {

using UpdateTarget = ChangeTarget;

/// Where a result column comes from, as the database tells it. All empty for a computed column.
struct ColumnOrigin {
    std::string catalog, schema, table, column;

    bool IsKnown() const noexcept { return !column.empty(); }
    bool IsOfSameTable(const ColumnOrigin& other) const noexcept {
        return table == other.table && schema == other.schema && catalog == other.catalog;
    }
};

/// What the catalogue says of one table. A provider keeps it until the database says that the schema has
/// changed.
struct TableInfo {
    struct Column {
        std::string name;             ///< without quotes
        bool isReadOnly = false;      ///< the database alone gives its value: a generated column
        bool isDeferrable = true;     ///< its long values can be read later, by the row's key
        bool isComparable = true;     ///< see `UpdateTarget::Column`
        bool comparesFloats = false;  ///< likewise
        std::string nullTest = {};    ///< likewise
    };
    std::string name;          ///< as it stands in a statement
    std::string schema;        ///< the two parts of the name, without quotes
    std::string plainName;     ///< likewise
    bool isBaseTable = false;  ///< not a view, and nothing foreign
    std::vector<Column> columns;
    /// The columns of the best unique key without nulls, without quotes: the primary key, else the smallest.
    std::vector<std::string> key;
    bool keyIsGenerated = false;  ///< the database gives a new row's key: one integer
    /// The hidden columns by which the database itself tells rows apart, as they stand in a statement: rowid.
    std::vector<std::string> rowId;
    bool prefersRowId = false;  ///< the row identity is used even where there is a key
    /// It stays when the row changes, so that values can be read by it later; the database gives a new row's.
    bool rowIdIsStable = false;
    std::string rowIdAlias;  ///< the column that is the row identity under another name; "" for none

    /// The column of a name, in any letter case; null where there is none.
    const Column* Find(std::string_view columnName) const;
};

/// What a provider tells the planner about a query. Every question leaves an open transaction as it was.
class QueryCatalog {
public:
    virtual ~QueryCatalog() = default;

    virtual sql::Dialect Dialect() const = 0;
    /// A name as it stands in a statement.
    virtual std::string QuotedName(std::string_view name) const { return sql::QuotedName(name, Dialect()); }
    /// Prepares a query without running it and tells the origins of its columns. A hidden row identity has
    /// its own name as the column. Nothing where the database refuses the text.
    virtual std::optional<std::vector<ColumnOrigin>> Describe(const std::string& text) = 0;
    /// The table of an origin; null where it is not known.
    virtual std::shared_ptr<const TableInfo> Table(const ColumnOrigin& origin) = 0;
    /// Whether a name in FROM is this table's own, and not that of a view on it.
    virtual bool IsNameOf(const sql::TableName& name, const ColumnOrigin& origin);
    /// Whether a name in FROM is that of a base table. Needs no answer where the database names a view itself
    /// as the origin of its columns.
    virtual bool IsBaseTable(const sql::TableName& /*name*/) { return true; }
    /// Whether an aggregate makes one row of many. Needs no answer where the database refuses plain columns
    /// beside an aggregate without GROUP BY: a query that has columns of a table has no aggregate then.
    virtual bool Aggregates(const sql::SelectQuery& /*query*/) { return false; }

    /// What stands in the select list for a long column whose values are read later.
    struct Deferral {
        std::string item;  ///< in the column's place; null or empty where the value is read later
        std::string size;  ///< a hidden column with the value's size in bytes; "" for none
    };
    /// Nothing where the database does not read long values later. quotedName stands in a statement.
    virtual std::optional<Deferral> DeferralOf(const std::string& /*quotedName*/) { return std::nullopt; }
};

/// How a query runs so that its rows can be changed and its long values read later.
struct QueryPlan {
    struct Column {
        std::string name;              ///< in its table, as it stands in a statement; "" where computed
        bool isDeferred = false;       ///< its values are read by the row's key
        std::int32_t sizeColumn = -1;  ///< where the value's size stands; -1: nowhere
    };
    std::string text;             ///< what is prepared instead of the query; the query itself in a join
    std::vector<Column> columns;  ///< one for each visible column
    UpdateTarget::Table table;    ///< the table of the deferred values, and its key
    std::shared_ptr<const UpdateTarget> target;  ///< null where the rows cannot be changed
    std::int32_t width = 0;                      ///< columns of a row, the hidden ones included

    bool HasDeferred() const;
};

/// Plans a query that the database has described as it stands. Nothing where it is best run as it is: its
/// rows cannot be changed, or need not be, and no value is deferred.
std::optional<QueryPlan> PlanQuery(QueryCatalog& catalog, std::string_view text,
                                   std::span<const ColumnInfo> columns, std::span<const ColumnOrigin> origins,
                                   Purpose purpose);

}  // namespace halvtiv::ado
