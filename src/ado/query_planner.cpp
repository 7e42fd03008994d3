#include "ado/query_planner.hpp"

#include <algorithm>
#include <utility>

#include <halvtiv/ado.hpp>

#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

using platform::EqualIgnoringCase;

bool IsLong(const ColumnInfo& column) {
    return (column.attributes & adFldLong) != 0;
}

std::int32_t PlaceOf(std::size_t index) {
    return static_cast<std::int32_t>(index);
}

bool IsOfOneTable(const sql::SelectQuery& query) {
    return query.tables.size() == 1 && !query.hasOtherSources;
}

class Planner {
public:
    Planner(QueryCatalog& catalog, const sql::SelectQuery& query, std::span<const ColumnInfo> columns,
            std::span<const ColumnOrigin> origins)
        : catalog_(catalog),
          query_(query),
          columns_(columns),
          described_(origins),
          origins_(origins.begin(), origins.end()),
          widths_(ItemWidths()) {
        ForgetOriginsOfSubqueries();
    }

    // A query on one table gets the row's key, and its long values stay in the database.
    std::optional<QueryPlan> PlanOne(Purpose purpose) {
        const auto* const origin = OnlyTable();
        if (!origin || !catalog_.IsNameOf(query_.tables.front(), *origin)) return std::nullopt;
        info_ = catalog_.Table(*origin);
        if (!info_ || !info_->isBaseTable || Aggregates()) return std::nullopt;
        QueryPlan plan;
        for (const auto& shown : origins_) {
            plan.columns.push_back({shown.IsKnown() ? catalog_.QuotedName(shown.column) : ""});
        }
        plan.table = {info_->name, info_->schema, info_->plainName, {}, false, ""};
        AddKey(plan, *origin);
        AddDeferrals(plan);
        if (purpose == Purpose::Read && !plan.HasDeferred()) return std::nullopt;
        plan.width = PlaceOf(columns_.size() + added_.size());
        if (purpose == Purpose::Change) plan.target = TargetOfOne(plan);
        plan.text = query_.text;
        if (added_.empty() && !plan.HasDeferred()) return plan;
        plan.text = query_.WithItems(ItemsOf(plan));
        if (!IsConfirmed(plan, *origin)) return std::nullopt;
        return plan;
    }

    // In a join, those tables can be changed whose whole key the query shows.
    std::optional<QueryPlan> PlanJoin() {
        const bool areBaseTables =
            std::all_of(query_.tables.begin(), query_.tables.end(),
                        [&](const sql::TableName& name) { return catalog_.IsBaseTable(name); });
        // A view shows its tables' columns as its own: whose row the key is of cannot be told then.
        if (!areBaseTables) return std::nullopt;
        auto target = std::make_shared<UpdateTarget>();
        std::vector<std::pair<ColumnOrigin, std::shared_ptr<const TableInfo>>> known;
        for (const auto& origin : origins_) {
            UpdateTarget::Column column;
            if (origin.IsKnown()) {
                auto found = std::find_if(known.begin(), known.end(), [&](const auto& other) {
                    return other.first.IsOfSameTable(origin);
                });
                if (found == known.end()) {
                    auto info = catalog_.Table(origin);
                    target->tables.push_back(TableInJoin(origin, info.get()));
                    found = known.insert(known.end(), {origin, std::move(info)});
                }
                const auto place = PlaceOf(static_cast<std::size_t>(found - known.begin()));
                if (found->second) column = ColumnOf(*found->second, origin, place);
            }
            target->columns.push_back(std::move(column));
        }
        const bool hasKey = std::any_of(target->tables.begin(), target->tables.end(),
                                        [](const auto& table) { return !table.key.empty(); });
        if (!hasKey || Aggregates()) return std::nullopt;
        QueryPlan plan;
        plan.text = query_.text;
        plan.columns.resize(columns_.size());
        plan.width = target->width = PlaceOf(columns_.size());
        plan.target = std::move(target);
        return plan;
    }

private:
    /// How many columns each item of the select list makes; none where that is not known.
    std::vector<std::size_t> ItemWidths() const {
        const auto stars = static_cast<std::size_t>(std::count_if(
            query_.items.begin(), query_.items.end(), [](const auto& item) { return item.isStar; }));
        const auto plain = query_.items.size() - stars;
        if (plain > columns_.size()) return {};
        const auto starWidth = stars == 0 ? 0 : (columns_.size() - plain) / stars;
        // Those of a join differ.
        const bool sameWidth = stars < 2 || IsOfOneTable(query_);
        if (!sameWidth || plain + stars * starWidth != columns_.size()) return {};
        std::vector<std::size_t> widths;
        for (const auto& item : query_.items) widths.push_back(item.isStar ? starWidth : 1);
        return widths;
    }

    // Databases name the column of a scalar subquery as the item's origin.
    void ForgetOriginsOfSubqueries() {
        const bool hasQuery = std::any_of(query_.items.begin(), query_.items.end(),
                                          [](const auto& item) { return item.hasQuery; });
        if (!hasQuery) return;
        if (widths_.empty()) origins_.assign(origins_.size(), {});
        std::size_t column = 0;
        for (std::size_t i = 0; i < widths_.size(); ++i) {
            if (query_.items[i].hasQuery) origins_[column] = {};
            column += widths_[i];
        }
    }

    /// The table of all columns that have one; null where that is not one table.
    const ColumnOrigin* OnlyTable() const {
        const ColumnOrigin* found = nullptr;
        for (const auto& origin : origins_) {
            if (!origin.IsKnown()) continue;
            if (found && !found->IsOfSameTable(origin)) return nullptr;
            found = &origin;
        }
        return found;
    }

    bool Aggregates() const {
        const bool hasCall = std::any_of(query_.levels.begin(), query_.levels.end(),
                                         [](const auto& level) { return level.hasCall; });
        return hasCall && catalog_.Aggregates(query_);
    }

    std::int32_t ShownPlace(const ColumnOrigin& table, std::string_view column) const {
        for (std::size_t i = 0; i < origins_.size(); ++i) {
            const bool isIt =
                origins_[i].IsOfSameTable(table) && EqualIgnoringCase(origins_[i].column, column);
            if (isIt) return PlaceOf(i);
        }
        return -1;
    }

    std::int32_t Add(std::string item) {
        added_.push_back(std::move(item));
        return PlaceOf(columns_.size() + added_.size()) - 1;
    }

    // The row identity of a derived table's rows has no name.
    void AddKey(QueryPlan& plan, const ColumnOrigin& origin) {
        const bool hasRowId = !info_->rowId.empty() && !query_.renamesColumns;
        usesRowId_ = hasRowId && (info_->key.empty() || info_->prefersRowId);
        auto& table = plan.table;
        if (usesRowId_) {
            for (const auto& name : info_->rowId) table.key.push_back({name, Add(name)});
            table.keyIsRowId = info_->rowIdIsStable;
            if (table.keyIsRowId) {
                const auto& alias = info_->rowIdAlias;
                table.keyAlias = catalog_.QuotedName(alias.empty() ? info_->rowId.front() : alias);
            }
            return;
        }
        for (const auto& name : info_->key) {
            const auto quoted = catalog_.QuotedName(name);
            auto place = ShownPlace(origin, name);
            if (place < 0) place = Add(quoted);
            table.key.push_back({quoted, place});
        }
        table.keyIsRowId = info_->keyIsGenerated && table.key.size() == 1;
    }

    void AddDeferrals(QueryPlan& plan) {
        const bool isStable = !plan.table.key.empty() && (!usesRowId_ || info_->rowIdIsStable);
        const bool mayDefer = isStable && !widths_.empty() && !query_.renamesColumns &&
                              !query_.ordersByNumber && !TailNamesOneOfTwo();
        deferrals_.resize(columns_.size());
        for (std::size_t i = 0; mayDefer && i < columns_.size(); ++i) {
            if (!MayDefer(plan, i)) continue;
            deferrals_[i] = catalog_.DeferralOf(plan.columns[i].name);
            if (!deferrals_[i]) continue;
            plan.columns[i].isDeferred = true;
            if (!deferrals_[i]->size.empty()) plan.columns[i].sizeColumn = Add(deferrals_[i]->size);
        }
    }

    bool MayDefer(const QueryPlan& plan, std::size_t place) const {
        if (!IsLong(columns_[place]) || !origins_[place].IsKnown()) return false;
        const auto* const column = info_->Find(origins_[place].column);
        const bool isKey = std::any_of(plan.table.key.begin(), plan.table.key.end(),
                                       [&](const auto& part) { return part.column == PlaceOf(place); });
        if (!column || !column->isDeferrable || isKey) return false;
        // Where the rest of the query references the column's alias, its value must be there.
        const auto& name = columns_[place].name;
        return EqualIgnoringCase(name, column->name) || !query_.TailNames(name);
    }

    // Which of the two is meant may change when "*" is written out.
    bool TailNamesOneOfTwo() const {
        return std::any_of(columns_.begin(), columns_.end(), [&](const ColumnInfo& column) {
            const auto times = std::count_if(columns_.begin(), columns_.end(), [&](const ColumnInfo& other) {
                return EqualIgnoringCase(other.name, column.name);
            });
            return times > 1 && query_.TailNames(column.name);
        });
    }

    UpdateTarget::Column ColumnOf(const TableInfo& info, const ColumnOrigin& origin,
                                  std::int32_t table) const {
        const auto* const column = info.Find(origin.column);
        auto name = catalog_.QuotedName(origin.column);
        if (column) {
            return {column->isReadOnly ? -1 : table, std::move(name), column->isComparable,
                    column->comparesFloats, column->nullTest};
        }
        const bool isRowId =
            info.rowIdIsStable && info.rowId.size() == 1 && info.rowId.front() == origin.column;
        return {isRowId ? table : -1, std::move(name)};
    }

    std::shared_ptr<const UpdateTarget> TargetOfOne(const QueryPlan& plan) const {
        auto target = std::make_shared<UpdateTarget>();
        target->tables.push_back(plan.table);
        for (const auto& origin : origins_) {
            target->columns.push_back(origin.IsKnown() ? ColumnOf(*info_, origin, 0)
                                                       : UpdateTarget::Column());
        }
        target->width = plan.width;
        return target;
    }

    UpdateTarget::Table TableInJoin(const ColumnOrigin& origin, const TableInfo* info) const {
        if (!info) return {};
        UpdateTarget::Table table{info->name, info->schema, info->plainName, {}, false, ""};
        const auto timesNamed =
            std::count_if(query_.tables.begin(), query_.tables.end(),
                          [&](const sql::TableName& name) { return catalog_.IsNameOf(name, origin); });
        if (timesNamed != 1 || !info->isBaseTable) return table;
        if (info->rowIdIsStable && info->rowId.size() == 1) {
            const auto place = ShownPlace(origin, info->rowId.front());
            if (place >= 0) {
                table.key.push_back({info->rowId.front(), place});
                return table;
            }
        }
        for (const auto& name : info->key) {
            const auto place = ShownPlace(origin, name);
            if (place < 0) {
                table.key.clear();
                return table;
            }
            table.key.push_back({catalog_.QuotedName(name), place});
        }
        table.keyIsRowId = info->keyIsGenerated && table.key.size() == 1;
        return table;
    }

    std::vector<std::string> ItemsOf(const QueryPlan& plan) const {
        std::vector<std::string> items;
        if (!plan.HasDeferred()) {
            for (const auto& item : query_.items) items.emplace_back(item.text);
        } else {
            std::size_t column = 0;
            for (std::size_t i = 0; i < widths_.size(); ++i) {
                const auto end = column + widths_[i];
                bool hasDeferred = false;
                for (auto at = column; at < end; ++at)
                    hasDeferred = hasDeferred || plan.columns[at].isDeferred;
                if (!hasDeferred) items.emplace_back(query_.items[i].text);
                for (; column < end; ++column) {
                    if (hasDeferred) items.push_back(ItemFor(plan, column));
                }
            }
        }
        items.insert(items.end(), added_.begin(), added_.end());
        return items;
    }

    std::string ItemFor(const QueryPlan& plan, std::size_t column) const {
        return deferrals_[column] ? deferrals_[column]->item : plan.columns[column].name;
    }

    /// Whether the database says of the new text that its first columns are those of the query, and those
    /// that were added the key.
    bool IsConfirmed(const QueryPlan& plan, const ColumnOrigin& table) {
        const auto now = catalog_.Describe(plan.text);
        if (!now || PlaceOf(now->size()) != plan.width) return false;
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (plan.columns[i].isDeferred) continue;
            const auto& was = described_[i];
            const bool isSame = (*now)[i].column == was.column && (*now)[i].IsOfSameTable(was);
            if (!isSame) return false;
        }
        for (std::size_t i = 0; i < plan.table.key.size(); ++i) {
            const auto& origin = (*now)[static_cast<std::size_t>(plan.table.key[i].column)];
            const auto& name = usesRowId_ ? info_->rowId[i] : info_->key[i];
            const bool isNamed = EqualIgnoringCase(origin.column, name) ||
                                 (usesRowId_ && EqualIgnoringCase(origin.column, info_->rowIdAlias));
            if (!origin.IsKnown() || !origin.IsOfSameTable(table) || !isNamed) return false;
        }
        return true;
    }

    QueryCatalog& catalog_;
    const sql::SelectQuery& query_;
    std::span<const ColumnInfo> columns_;
    std::span<const ColumnOrigin> described_;
    std::vector<ColumnOrigin> origins_;  // without those of subqueries
    std::vector<std::size_t> widths_;    // see ItemWidths
    std::vector<std::string> added_;     // items behind the visible ones
    std::vector<std::optional<QueryCatalog::Deferral>> deferrals_;
    std::shared_ptr<const TableInfo> info_;  // of the only table
    bool usesRowId_ = false;
};

}  // namespace

const TableInfo::Column* TableInfo::Find(std::string_view columnName) const {
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const Column& column) {
        return EqualIgnoringCase(column.name, columnName);
    });
    return found == columns.end() ? nullptr : &*found;
}

bool QueryCatalog::IsNameOf(const sql::TableName& name, const ColumnOrigin& origin) {
    if (!EqualIgnoringCase(name.name, origin.table)) return false;
    return name.schema.empty() || EqualIgnoringCase(name.schema, origin.schema) ||
           EqualIgnoringCase(name.schema, origin.catalog);
}

bool QueryPlan::HasDeferred() const {
    return std::any_of(columns.begin(), columns.end(),
                       [](const Column& column) { return column.isDeferred; });
}

std::optional<QueryPlan> PlanQuery(QueryCatalog& catalog, std::string_view text,
                                   std::span<const ColumnInfo> columns, std::span<const ColumnOrigin> origins,
                                   Purpose purpose) {
    const bool mayBePlanned =
        std::any_of(origins.begin(), origins.end(), [](const auto& origin) { return origin.IsKnown(); }) &&
        (purpose == Purpose::Change || std::any_of(columns.begin(), columns.end(), IsLong));
    if (!mayBePlanned || origins.size() != columns.size()) return std::nullopt;
    const auto query = sql::ReadSelectQuery(text, catalog.Dialect());
    if (!query || query->tables.empty()) return std::nullopt;
    Planner planner(catalog, *query, columns, origins);
    if (IsOfOneTable(*query)) return planner.PlanOne(purpose);
    return purpose == Purpose::Change ? planner.PlanJoin() : std::nullopt;
}

}  // namespace halvtiv::ado
