#include "ado/sqlite/sqlite_plan.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <utility>

#include <halvtiv/ado.hpp>

#include "ado/select_text.hpp"
#include "ado/sqlite/sqlite_schema.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

using platform::EqualIgnoringCase;

std::string TextOf(const char* text) {
    return text ? text : "";
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
        const auto facts = SqliteTableFactsOf(database_, table->schema, table->table);
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
            if (plan.HasDeferred() && !IsUtf8SqliteDatabase(database_))
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
            const auto source = SqliteSourceOf(database_, ref);
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
        const auto source = SqliteSourceOf(database_, ref);
        return source && !source->isView && EqualIgnoringCase(source->schema, table.schema);
    }

    // A value that the rest of the query knows under the column's own name of the result must be there.
    bool MayDefer(std::size_t column, const SqliteTableFacts& facts) const {
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

    std::shared_ptr<const ChangeTarget> TargetOfOne(const Origin& origin, const SqliteTableFacts& facts,
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
        const auto facts = SqliteTableFactsOf(database_, origin.schema, origin.table);
        if (timesNamed == 1 && facts.isTable) table.key = ShownKey(origin, facts);
        target.tables.push_back(std::move(table));
        return static_cast<std::int32_t>(target.tables.size()) - 1;
    }

    std::vector<ChangeTarget::KeyColumn> ShownKey(const Origin& origin, const SqliteTableFacts& facts) const {
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

}  // namespace halvtiv::ado
