#include "ado/sqlite/sqlite_plan.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <utility>

#include <halvtiv/ado.hpp>

#include "ado/select_text.hpp"
#include "ado/sql_scanner.hpp"
#include "ado/sqlite/sqlite_statement.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

using platform::EqualIgnoringCase;

std::string TextOf(const char* text) {
    return text ? text : "";
}

/// The rows of a query about the schema; parameters are texts.
class SchemaQuery {
public:
    SchemaQuery(sqlite3* database, const char* sql, std::span<const std::string> parameters) {
        sqlite3_stmt* prepared = nullptr;
        sqlite3_prepare_v2(database, sql, -1, &prepared, nullptr);
        statement_.reset(prepared);
        int place = 0;
        for (const auto& parameter : parameters) {
            sqlite3_bind_text64(prepared, ++place, parameter.data(), parameter.size(), SQLITE_STATIC,
                                SQLITE_UTF8);
        }
    }
    // What cannot be found out counts as absent: the query then runs as it stands.
    bool Next() { return statement_ && sqlite3_step(statement_.get()) == SQLITE_ROW; }
    std::string Text(int column) {
        return TextOf(reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column)));
    }
    int Integer(int column) { return sqlite3_column_int(statement_.get(), column); }

private:
    SqliteStatementHandle statement_;
};

struct TableColumn {
    std::string name;
    std::string type;
    int keyPosition = 0;  // in the primary key, from 1; 0: not of it
    bool isGenerated = false;
    bool hasDefault = false;
};

struct TableFacts {
    bool isTable = false;  // no view, and not virtual
    bool hasRowId = false;
    std::vector<TableColumn> columns;

    const TableColumn* Find(std::string_view name) const {
        const auto found = std::find_if(columns.begin(), columns.end(), [&](const TableColumn& column) {
            return EqualIgnoringCase(column.name, name);
        });
        return found == columns.end() ? nullptr : &*found;
    }

    std::vector<const TableColumn*> PrimaryKey() const {
        std::vector<const TableColumn*> key;
        for (const auto& column : columns) {
            if (column.keyPosition > 0) key.push_back(&column);
        }
        std::sort(key.begin(), key.end(),
                  [](const auto* left, const auto* right) { return left->keyPosition < right->keyPosition; });
        return key;
    }

    /// The column that is the row id under another name; null where there is none.
    const TableColumn* RowIdAlias() const {
        const auto key = PrimaryKey();
        const bool isAlias = hasRowId && key.size() == 1 && EqualIgnoringCase(key.front()->type, "integer");
        return isAlias ? key.front() : nullptr;
    }

    /// A name by which the row id can be asked for; "" where columns have taken all of them.
    std::string RowIdName() const {
        constexpr std::array<const char*, 3> kNames{"rowid", "_rowid_", "oid"};
        if (!hasRowId) return {};
        const auto* const found =
            std::find_if(kNames.begin(), kNames.end(), [&](const char* name) { return !Find(name); });
        return found == kNames.end() ? "" : *found;
    }

    // What the database reads by row id is taken for another column where some are generated; and the value
    // of a column that was added to its table is not in the older rows.
    bool MayReadByRowId(std::string_view name) const {
        const auto isGenerated = [](const TableColumn& column) { return column.isGenerated; };
        const auto* const column = Find(name);
        return column && !column->hasDefault && std::none_of(columns.begin(), columns.end(), isGenerated);
    }
};

/// What a name in FROM stands for.
struct NamedSource {
    std::string schema;
    bool isView = false;
};

// The database looks for it among the temporary tables first.
std::optional<NamedSource> SourceOf(sqlite3* database, const SelectText::TableRef& ref) {
    const std::array names{ref.name, ref.schema};
    SchemaQuery list(database,
                     "select t.schema, t.type = 'view' from pragma_table_list(?1) as t, pragma_database_list "
                     "as d on d.name = t.schema where ?2 = '' or t.schema = ?2 collate nocase order by "
                     "t.schema <> 'temp', d.seq",
                     names);
    if (!list.Next()) return std::nullopt;
    return NamedSource{list.Text(0), list.Integer(1) != 0};
}

// In the others, the bytes that are read by row id are not the text's.
bool IsUtf8Database(sqlite3* database) {
    SchemaQuery encoding(database, "select encoding from pragma_encoding", {});
    return encoding.Next() && encoding.Text(0) == "UTF-8";
}

TableFacts FactsOf(sqlite3* database, const std::string& schema, const std::string& table) {
    const std::array names{schema, table};
    TableFacts facts;
    SchemaQuery list(database, "select type, wr from pragma_table_list(?2) as t where t.schema = ?1", names);
    if (list.Next()) {
        facts.isTable = list.Text(0) == "table";
        facts.hasRowId = facts.isTable && list.Integer(1) == 0;
    }
    SchemaQuery columns(
        database, "select name, type, pk, hidden, dflt_value is not null from pragma_table_xinfo(?2, ?1)",
        names);
    while (columns.Next()) {
        facts.columns.push_back({columns.Text(0), columns.Text(1), columns.Integer(2), columns.Integer(3) > 1,
                                 columns.Integer(4) != 0});
    }
    return facts;
}

/// Where a visible column comes from.
struct Origin {
    std::string schema, table, column;  // all "" for a computed one
    bool IsKnown() const { return !column.empty(); }
    bool IsOf(const Origin& other) const { return schema == other.schema && table == other.table; }
};

std::vector<Origin> OriginsOf(sqlite3_stmt* statement) {
    std::vector<Origin> origins;
    const int count = sqlite3_column_count(statement);
    origins.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        origins.push_back({TextOf(sqlite3_column_database_name(statement, i)),
                           TextOf(sqlite3_column_table_name(statement, i)),
                           TextOf(sqlite3_column_origin_name(statement, i))});
    }
    return origins;
}

std::string FullName(const Origin& origin) {
    return QuotedSqliteName(origin.schema) + "." + QuotedSqliteName(origin.table);
}

class Planner {
public:
    Planner(sqlite3_stmt* statement, const SelectText& select, std::span<const ColumnInfo> columns)
        : database_(sqlite3_db_handle(statement)),
          select_(select),
          columns_(columns),
          origins_(OriginsOf(statement)) {
        widths_ = ItemWidths();
        if (std::any_of(select_.items.begin(), select_.items.end(), HoldsQuery)) ForgetOriginsOfQueries();
    }

    // A query on one table gets the row's key, and leaves long values where they are.
    std::optional<SqlitePlan> PlanOne(Purpose purpose) {
        const auto* const table = OnlyTable();
        if (!table || widths_.empty() || !IsNamed(select_.tables.front(), *table)) return std::nullopt;
        const auto facts = FactsOf(database_, table->schema, table->table);
        if (!facts.isTable) return std::nullopt;
        const auto rowIdName = facts.RowIdName();
        SqlitePlan plan;
        plan.deferred.resize(columns_.size());
        for (const auto& origin : origins_) plan.names.push_back(origin.column);
        std::vector<std::string> added;
        if (!rowIdName.empty()) {
            plan.schema = table->schema;
            plan.table = table->table;
            plan.rowIdColumn = static_cast<std::int32_t>(columns_.size());
            added.push_back(rowIdName);
            for (std::size_t i = 0; i < columns_.size(); ++i) plan.deferred[i] = MayDefer(i, facts);
            if (plan.HasDeferred() && !IsUtf8Database(database_))
                plan.deferred.assign(columns_.size(), false);
        }
        if (purpose == Purpose::Change) plan.target = TargetOfOne(*table, facts, rowIdName, added);
        if (!plan.target && !plan.HasDeferred()) return std::nullopt;
        plan.text = TextOfPlan(plan, added);
        return plan;
    }

    // In a join, those tables can be changed whose key the query shows.
    std::optional<SqlitePlan> PlanJoin(std::string_view text) {
        // A view shows its tables' columns as its own: whose row the key is of cannot be told then.
        for (const auto& ref : select_.tables) {
            const auto source = SourceOf(database_, ref);
            if (!source || source->isView) return std::nullopt;
        }
        auto target = std::make_shared<ChangeTarget>();
        for (const auto& origin : origins_) {
            ChangeTarget::Column column;
            if (origin.IsKnown()) column = {TableInJoin(*target, origin), QuotedSqliteName(origin.column)};
            target->columns.push_back(std::move(column));
        }
        target->width = static_cast<std::int32_t>(columns_.size());
        const bool hasKey = std::any_of(target->tables.begin(), target->tables.end(),
                                        [](const auto& table) { return !table.key.empty(); });
        if (!hasKey) return std::nullopt;
        SqlitePlan plan;
        plan.text = text;
        plan.deferred.resize(columns_.size());
        plan.target = std::move(target);
        return plan;
    }

private:
    /// The table of all columns that have one; null where that is not one table.
    const Origin* OnlyTable() const {
        const Origin* found = nullptr;
        for (const auto& origin : origins_) {
            if (!origin.IsKnown()) continue;
            if (found && !found->IsOf(origin)) return nullptr;
            found = &origin;
        }
        return found;
    }

    /// How many columns each item of the select list makes; none where that is not known.
    std::vector<std::size_t> ItemWidths() const {
        const auto stars =
            static_cast<std::size_t>(std::count_if(select_.items.begin(), select_.items.end(), IsStarItem));
        const std::size_t plain = select_.items.size() - stars;
        const std::size_t starWidth = stars == 0 ? 0 : (columns_.size() - plain) / stars;
        // Those of a join differ.
        const bool sameWidth = stars < 2 || select_.tables.size() == 1;
        if (!sameWidth || plain + stars * starWidth != columns_.size()) return {};
        std::vector<std::size_t> widths;
        for (const auto item : select_.items) widths.push_back(IsStarItem(item) ? starWidth : 1);
        return widths;
    }

    void ForgetOriginsOfQueries() {
        if (widths_.empty()) origins_.assign(origins_.size(), {});
        std::size_t column = 0;
        for (std::size_t i = 0; i < widths_.size(); ++i) {
            if (HoldsQuery(select_.items[i])) origins_[column] = {};
            column += widths_[i];
        }
    }

    /// Whether a name in FROM is that table's, and not a view's on it.
    bool IsNamed(const SelectText::TableRef& ref, const Origin& table) const {
        if (!EqualIgnoringCase(ref.name, table.table)) return false;
        const auto source = SourceOf(database_, ref);
        return source && !source->isView && EqualIgnoringCase(source->schema, table.schema);
    }

    // A value that the rest of the query knows under the column's own name of the result must be there.
    bool MayDefer(std::size_t column, const TableFacts& facts) const {
        if ((columns_[column].attributes & adFldLong) == 0 || !origins_[column].IsKnown()) return false;
        if (select_.ordersByNumber || !facts.MayReadByRowId(origins_[column].column)) return false;
        if (TailNamesOneOfTwo()) return false;
        const auto& name = columns_[column].name;
        return EqualIgnoringCase(name, origins_[column].column) || !select_.TailNames(name);
    }

    // Which of the two is meant may change when "*" is written out.
    bool TailNamesOneOfTwo() const {
        return std::any_of(columns_.begin(), columns_.end(), [&](const ColumnInfo& column) {
            const auto times = std::count_if(columns_.begin(), columns_.end(), [&](const ColumnInfo& other) {
                return EqualIgnoringCase(other.name, column.name);
            });
            return times > 1 && select_.TailNames(column.name);
        });
    }

    std::shared_ptr<const ChangeTarget> TargetOfOne(const Origin& origin, const TableFacts& facts,
                                                    const std::string& rowIdName,
                                                    std::vector<std::string>& added) const {
        ChangeTarget::Table table{FullName(origin), origin.schema, origin.table, {}, !rowIdName.empty(), ""};
        if (table.keyIsRowId) {
            table.key.push_back({rowIdName, static_cast<std::int32_t>(columns_.size())});
            const auto* const alias = facts.RowIdAlias();
            table.keyAlias = QuotedSqliteName(alias ? alias->name : rowIdName);
        } else {
            for (const auto* column : facts.PrimaryKey()) {
                auto place = PlaceOf(origin, column->name);
                if (place < 0) {
                    place = static_cast<std::int32_t>(columns_.size() + added.size());
                    added.push_back(QuotedSqliteName(column->name));
                }
                table.key.push_back({QuotedSqliteName(column->name), place});
            }
            if (table.key.empty()) return nullptr;
        }
        auto target = std::make_shared<ChangeTarget>();
        for (const auto& shown : origins_) {
            const auto* const column = facts.Find(shown.column);
            const bool isFixed = !shown.IsKnown() || (column && column->isGenerated);
            target->columns.push_back({isFixed ? -1 : 0, QuotedSqliteName(shown.column)});
        }
        target->tables.push_back(std::move(table));
        target->width = static_cast<std::int32_t>(columns_.size() + added.size());
        return target;
    }

    std::int32_t PlaceOf(const Origin& table, std::string_view column) const {
        for (std::size_t i = 0; i < origins_.size(); ++i) {
            const bool isIt = origins_[i].IsOf(table) && EqualIgnoringCase(origins_[i].column, column);
            if (isIt) return static_cast<std::int32_t>(i);
        }
        return -1;
    }

    std::int32_t TableInJoin(ChangeTarget& target, const Origin& origin) const {
        const auto name = FullName(origin);
        for (std::size_t i = 0; i < target.tables.size(); ++i) {
            if (target.tables[i].name == name) return static_cast<std::int32_t>(i);
        }
        ChangeTarget::Table table{name, origin.schema, origin.table, {}, false, ""};
        const auto timesNamed =
            std::count_if(select_.tables.begin(), select_.tables.end(),
                          [&](const SelectText::TableRef& ref) { return IsNamed(ref, origin); });
        const auto facts = FactsOf(database_, origin.schema, origin.table);
        if (timesNamed == 1 && facts.isTable) table.key = ShownKey(origin, facts);
        target.tables.push_back(std::move(table));
        return static_cast<std::int32_t>(target.tables.size()) - 1;
    }

    std::vector<ChangeTarget::KeyColumn> ShownKey(const Origin& origin, const TableFacts& facts) const {
        const auto rowIdName = facts.RowIdName();
        if (const auto place = PlaceOf(origin, rowIdName); !rowIdName.empty() && place >= 0) {
            return {{rowIdName, place}};
        }
        std::vector<ChangeTarget::KeyColumn> key;
        for (const auto* column : facts.PrimaryKey()) {
            const auto place = PlaceOf(origin, column->name);
            if (place < 0) return {};
            key.push_back({QuotedSqliteName(column->name), place});
        }
        return key;
    }

    /// The query with the plan's select list.
    std::string TextOfPlan(const SqlitePlan& plan, const std::vector<std::string>& added) const {
        std::vector<std::string> items;
        std::size_t column = 0;
        for (std::size_t item = 0; item < widths_.size(); ++item) {
            const std::size_t width = widths_[item];
            const auto first = plan.deferred.begin() + static_cast<std::ptrdiff_t>(column);
            const bool hasDeferred = std::any_of(first, first + static_cast<std::ptrdiff_t>(width),
                                                 [](bool isDeferred) { return isDeferred; });
            if (!hasDeferred) {
                items.emplace_back(select_.items[item]);
            } else {
                for (std::size_t i = column; i < column + width; ++i) items.push_back(ItemFor(plan, i));
            }
            column += width;
        }
        items.insert(items.end(), added.begin(), added.end());

        // On lines of their own, for an item may end in a comment.
        std::string text(select_.opening);
        for (const auto& item : items) {
            if (&item != &items.front()) text += "\n, ";
            text += item;
        }
        text += '\n';
        text += select_.tail;
        return text;
    }

    // Asking for the type alone does not read the value.
    std::string ItemFor(const SqlitePlan& plan, std::size_t column) const {
        auto name = QuotedSqliteName(origins_[column].column);
        if (!plan.deferred[column]) return name;
        return "CASE typeof(" + name + ") WHEN 'blob' THEN x'' WHEN 'text' THEN '' ELSE " + name + " END";
    }

    sqlite3* database_;
    const SelectText& select_;
    std::span<const ColumnInfo> columns_;
    std::vector<Origin> origins_;
    std::vector<std::size_t>
        widths_;  // of the select list's items, in columns; none where they are not known
};

}  // namespace

bool SqlitePlan::HasDeferred() const {
    return std::any_of(deferred.begin(), deferred.end(), [](bool isDeferred) { return isDeferred; });
}

std::string QuotedSqliteName(std::string_view name) {
    std::string quoted = "\"";
    for (const char c : name) {
        quoted += c;
        if (c == '"') quoted += c;
    }
    quoted += '"';
    return quoted;
}

std::optional<SqlitePlan> PlanSqliteQuery(sqlite3_stmt* statement, std::string_view text,
                                          std::span<const ColumnInfo> columns, Purpose purpose) {
    const auto isLong = [](const ColumnInfo& column) { return (column.attributes & adFldLong) != 0; };
    const bool hasLong = std::any_of(columns.begin(), columns.end(), isLong);
    if (purpose == Purpose::Read && !hasLong) return std::nullopt;
    const auto select = ReadSelectText(text);
    if (!select || select->tables.empty()) return std::nullopt;
    Planner planner(statement, *select, columns);
    if (select->tables.size() == 1) return planner.PlanOne(purpose);
    return purpose == Purpose::Change ? planner.PlanJoin(text) : std::nullopt;
}

bool MayFillLater(sqlite3* database, const std::string& schema, const std::string& table,
                  const std::string& column) {
    const std::array names{schema, table};
    const std::array allNames{schema, table, column};
    SchemaQuery lookers(
        database,
        "select 1 from pragma_index_list(?2, ?1) as l, pragma_index_info(l.name, ?1) as i where i.name = ?3 "
        "collate nocase or i.cid = -2 union all select 1 from pragma_foreign_key_list(?2, ?1) where \"from\" "
        "= ?3 collate nocase",
        allNames);
    if (lookers.Next()) return false;
    const auto source = QuotedSqliteName(schema) + ".sqlite_schema";
    SchemaQuery triggers(database,
                         ("select 1 from " + source +
                          " where type = 'trigger' and tbl_name = ?2 collate nocase and ?1 <> '' union all "
                          "select 1 from temp.sqlite_schema where type = 'trigger' and tbl_name = ?2 collate "
                          "nocase")
                             .c_str(),
                         names);
    if (triggers.Next()) return false;
    const auto facts = FactsOf(database, schema, table);
    if (std::any_of(facts.columns.begin(), facts.columns.end(),
                    [](const TableColumn& other) { return other.isGenerated; })) {
        return false;
    }
    SchemaQuery texts(
        database,
        ("select sql from " + source + " where tbl_name = ?2 collate nocase and ?1 <> '' and sql <> ''")
            .c_str(),
        names);
    while (texts.Next()) {
        const std::string sql = texts.Text(0);
        SqlScanner scanner(sql);
        SqlToken token = scanner.Next();
        token = scanner.Next();  // behind CREATE
        const bool isIndex = !token.IsWord("table");
        int depth = 0;
        for (; token.kind != SqlToken::Kind::End; token = scanner.Next()) {
            // A check, and an index on an expression or a part of the rows, may look at any column.
            if (token.IsSymbol('(')) ++depth;
            if (token.IsSymbol(')')) --depth;
            if (token.IsWord("check") || (isIndex && (token.IsWord("where") || depth > 1))) return false;
        }
    }
    return true;
}

}  // namespace halvtiv::ado
