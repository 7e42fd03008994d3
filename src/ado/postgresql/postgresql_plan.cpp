#include "ado/postgresql/postgresql_plan.hpp"

#include <algorithm>
#include <charconv>
#include <map>
#include <utility>

#include <halvtiv/ado.hpp>

#include "ado/postgresql/postgresql_session.hpp"
#include "ado/postgresql/postgresql_text.hpp"
#include "ado/select_text.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

using platform::EqualIgnoringCase;

// A table's columns, and of the best key that finds a row the columns' positions. A key over a table that
// others inherit from does not count: it does not hold for their rows.
constexpr const char* kFactsQuery =
    "WITH key AS ("
    " SELECT (i.indkey::int2[])[0:i.indnkeyatts - 1] AS columns FROM pg_catalog.pg_index i"
    " WHERE i.indrelid = $1::oid AND i.indisunique AND i.indisvalid AND i.indimmediate"
    " AND i.indpred IS NULL AND i.indexprs IS NULL AND NOT EXISTS ("
    "  SELECT FROM pg_catalog.pg_attribute n WHERE n.attrelid = i.indrelid AND NOT n.attnotnull"
    "  AND n.attnum = ANY ((i.indkey::int2[])[0:i.indnkeyatts - 1]))"
    " ORDER BY i.indisprimary DESC, i.indnkeyatts, i.indexrelid LIMIT 1)"
    " SELECT n.nspname, c.relname, c.relkind, c.relhassubclass, a.attnum, a.attname, a.attnotnull,"
    " a.attgenerated <> '' OR a.attidentity = 'a',"
    " CASE WHEN t.typcategory IN ('G', 'C', 'X', 'Z') THEN false"
    "  WHEN t.typcategory = 'U' THEN EXISTS ("
    "   SELECT FROM pg_catalog.pg_opclass o WHERE o.opcintype = t.oid AND o.opcdefault)"
    "  WHEN t.typcategory = 'A' THEN NOT EXISTS ("
    "   SELECT FROM pg_catalog.pg_type e WHERE e.oid = t.typelem AND e.typcategory IN ('G', 'C', 'U'))"
    "  ELSE true END,"
    " CASE WHEN c.relkind = 'r' AND c.relhassubclass THEN 0 ELSE coalesce((SELECT"
    "  pg_catalog.array_position(key.columns, a.attnum) FROM key), 0) END,"
    " a.atttypid"
    " FROM pg_catalog.pg_class c JOIN pg_catalog.pg_namespace n ON n.oid = c.relnamespace"
    " JOIN pg_catalog.pg_attribute a ON a.attrelid = c.oid AND a.attnum > 0 AND NOT a.attisdropped"
    " JOIN pg_catalog.pg_type t ON t.oid = a.atttypid"
    " WHERE c.oid = $1::oid ORDER BY a.attnum";

struct TableColumn {
    int number = 0;
    std::string name;
    bool isNotNull = false;
    bool isFixed = false;  // given by the database alone
    bool isComparable = true;
    int keyPosition = 0;  // in the key, from 1; 0: not of it
    bool isInteger = false;
};

struct TableFacts {
    std::string schema;
    std::string name;
    bool isTable = false;       // no view and nothing foreign
    bool hasManyParts = false;  // its rows stand in several tables
    std::vector<TableColumn> columns;

    const TableColumn* Find(int number) const {
        const auto found = std::find_if(columns.begin(), columns.end(),
                                        [&](const TableColumn& column) { return column.number == number; });
        return found == columns.end() ? nullptr : &*found;
    }
    std::vector<const TableColumn*> Key() const {
        std::vector<const TableColumn*> key;
        for (const auto& column : columns) {
            if (column.keyPosition > 0) key.push_back(&column);
        }
        return key;
    }
    std::string FullName() const { return QuotedPostgresqlName(schema) + "." + QuotedPostgresqlName(name); }
};

int NumberAt(const PGresult* result, int row, int column) {
    const std::string_view digits = PQgetvalue(result, row, column);
    int number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

bool IsTrueAt(const PGresult* result, int row, int column) {
    return std::string_view(PQgetvalue(result, row, column)) == "t";
}

TableFacts FactsOf(PostgresqlSession& session, Oid table) {
    constexpr int kInt8 = 20;
    constexpr int kInt2 = 21;
    constexpr int kInt4 = 23;
    PostgresqlParameters parameters;
    parameters.AddText(std::to_string(table));
    const auto result = session.Query(kFactsQuery, parameters, false);
    const auto* const rows = result.get();
    TableFacts facts;
    for (int row = 0; row < PQntuples(rows); ++row) {
        if (row == 0) {
            facts.schema = PQgetvalue(rows, row, 0);
            facts.name = PQgetvalue(rows, row, 1);
            const std::string_view kind = PQgetvalue(rows, row, 2);
            facts.isTable = kind == "r" || kind == "p";
            facts.hasManyParts = kind == "p" || IsTrueAt(rows, row, 3);
        }
        const int type = NumberAt(rows, row, 10);
        facts.columns.push_back({NumberAt(rows, row, 4), PQgetvalue(rows, row, 5), IsTrueAt(rows, row, 6),
                                 IsTrueAt(rows, row, 7), IsTrueAt(rows, row, 8), NumberAt(rows, row, 9),
                                 type == kInt2 || type == kInt4 || type == kInt8});
    }
    return facts;
}

/// Where a visible column comes from; no table for a computed one.
struct Origin {
    Oid table = 0;
    int column = 0;
};

class Planner {
public:
    Planner(PostgresqlSession& session, const SelectText& select, const PGresult* description,
            std::span<const ColumnInfo> columns)
        : session_(session), select_(select), columns_(columns) {
        for (int i = 0; i < PQnfields(description); ++i) {
            origins_.push_back({PQftable(description, i), PQftablecol(description, i)});
        }
    }

    // A query on one table gets the row's key, and leaves large values where they are.
    std::optional<PostgresqlPlan> PlanOne(Purpose purpose) {
        const auto table = OnlyTable();
        if (table == 0) return std::nullopt;
        const auto facts = FactsOf(session_, table);
        if (!facts.isTable || !EqualIgnoringCase(select_.tables.front().name, facts.name))
            return std::nullopt;
        PostgresqlPlan plan;
        plan.table = facts.FullName();
        plan.sizeColumns.assign(columns_.size(), -1);
        for (const auto& origin : origins_) {
            const auto* const column = facts.Find(origin.column);
            plan.names.push_back(origin.table != 0 && column ? QuotedPostgresqlName(column->name) : "");
        }
        if (purpose == Purpose::Change || MayDeferAny()) AddKey(plan, facts, purpose);
        if (plan.key.empty()) return std::nullopt;
        AddSizes(plan, facts);
        if (purpose == Purpose::Change) plan.target = TargetOfOne(plan, facts);
        if (!plan.target && !plan.HasDeferred()) return std::nullopt;
        auto text = TextOfPlan(plan);
        if (!text) return std::nullopt;
        plan.text = *std::move(text);
        plan.width = static_cast<std::int32_t>(columns_.size() + added_.size());
        return plan;
    }

    // In a join, those tables can be changed whose key the query shows.
    std::optional<PostgresqlPlan> PlanJoin(std::string_view text) {
        auto target = std::make_shared<ChangeTarget>();
        std::map<Oid, std::pair<std::int32_t, TableFacts>> known;
        for (const auto& origin : origins_) {
            ChangeTarget::Column column;
            if (origin.table != 0) {
                if (!known.contains(origin.table)) {
                    auto facts = FactsOf(session_, origin.table);
                    target->tables.push_back(TableOf(facts, ShownKey(origin.table, facts)));
                    known[origin.table] = {static_cast<std::int32_t>(target->tables.size()) - 1,
                                           std::move(facts)};
                }
                const auto& [place, facts] = known[origin.table];
                column = TargetColumn(facts, origin, place);
            }
            target->columns.push_back(std::move(column));
        }
        target->width = static_cast<std::int32_t>(columns_.size());
        const bool hasKey = std::any_of(target->tables.begin(), target->tables.end(),
                                        [](const auto& table) { return !table.key.empty(); });
        if (!hasKey) return std::nullopt;
        PostgresqlPlan plan;
        plan.text = text;
        plan.sizeColumns.assign(columns_.size(), -1);
        plan.names.resize(columns_.size());
        plan.width = target->width;
        plan.target = std::move(target);
        return plan;
    }

private:
    /// The table of all columns that have one; 0 where that is not one table.
    Oid OnlyTable() const {
        Oid found = 0;
        for (const auto& origin : origins_) {
            if (origin.table == 0) continue;
            if (found != 0 && found != origin.table) return 0;
            found = origin.table;
        }
        return found;
    }

    bool MayDefer(std::size_t column) const {
        return (columns_[column].attributes & adFldLong) != 0 && origins_[column].table != 0 &&
               !select_.ordersByNumber;
    }
    bool MayDeferAny() const {
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            if (MayDefer(i)) return true;
        }
        return false;
    }

    std::int32_t PlaceOf(Oid table, int column) const {
        for (std::size_t i = 0; i < origins_.size(); ++i) {
            if (origins_[i].table == table && origins_[i].column == column)
                return static_cast<std::int32_t>(i);
        }
        return -1;
    }

    std::int32_t Add(std::string item) {
        added_.push_back(std::move(item));
        return static_cast<std::int32_t>(columns_.size() + added_.size()) - 1;
    }

    // Without a key the place of the row itself tells which it is, until it is changed: enough to change it,
    // not to read a value later.
    void AddKey(PostgresqlPlan& plan, const TableFacts& facts, Purpose purpose) {
        for (const auto* column : facts.Key()) {
            auto place = PlaceOf(OnlyTable(), column->number);
            const auto name = QuotedPostgresqlName(column->name);
            if (place < 0) place = Add(name);
            plan.key.push_back({name, place});
        }
        if (!plan.key.empty() || purpose != Purpose::Change) return;
        isByPlace_ = true;
        if (facts.hasManyParts) plan.key.push_back({"tableoid", Add("tableoid")});
        plan.key.push_back({"ctid", Add("ctid")});
    }

    // A value that the rest of the query knows under the column's own name of the result must be there.
    void AddSizes(PostgresqlPlan& plan, const TableFacts& facts) {
        if (isByPlace_) return;
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            const auto* const column = facts.Find(origins_[i].column);
            if (!MayDefer(i) || !column) continue;
            const bool isKey = std::any_of(plan.key.begin(), plan.key.end(), [&](const auto& part) {
                return part.column == static_cast<std::int32_t>(i);
            });
            const bool isRenamed = columns_[i].name != column->name;
            if (isKey || (isRenamed && select_.TailNames(columns_[i].name))) continue;
            plan.sizeColumns[i] = Add("octet_length(" + plan.names[i] + ")");
        }
    }

    static ChangeTarget::Table TableOf(const TableFacts& facts, std::vector<ChangeTarget::KeyColumn> key) {
        const auto columns = facts.Key();
        const bool isOneNumber = columns.size() == 1 && key.size() == 1 && columns.front()->isInteger;
        return {facts.FullName(), facts.schema, facts.name, std::move(key), isOneNumber, ""};
    }

    static ChangeTarget::Column TargetColumn(const TableFacts& facts, const Origin& origin,
                                             std::int32_t table) {
        const auto* const column = facts.Find(origin.column);
        if (origin.table == 0 || !column) return {};
        return {column->isFixed ? -1 : table, QuotedPostgresqlName(column->name), column->isComparable, true};
    }

    std::shared_ptr<ChangeTarget> TargetOfOne(const PostgresqlPlan& plan, const TableFacts& facts) const {
        auto target = std::make_shared<ChangeTarget>();
        target->tables.push_back(TableOf(facts, plan.key));
        for (const auto& origin : origins_) target->columns.push_back(TargetColumn(facts, origin, 0));
        target->width = static_cast<std::int32_t>(columns_.size() + added_.size());
        return target;
    }

    std::vector<ChangeTarget::KeyColumn> ShownKey(Oid table, const TableFacts& facts) const {
        const auto timesNamed = std::count_if(
            select_.tables.begin(), select_.tables.end(),
            [&](const SelectText::TableRef& ref) { return EqualIgnoringCase(ref.name, facts.name); });
        if (timesNamed != 1 || !facts.isTable) return {};
        std::vector<ChangeTarget::KeyColumn> key;
        for (const auto* column : facts.Key()) {
            const auto place = PlaceOf(table, column->number);
            if (place < 0) return {};
            key.push_back({QuotedPostgresqlName(column->name), place});
        }
        return key;
    }

    /// The query with the plan's select list; nothing where its items cannot be matched to its columns.
    std::optional<std::string> TextOfPlan(const PostgresqlPlan& plan) const {
        const auto stars =
            static_cast<std::size_t>(std::count_if(select_.items.begin(), select_.items.end(), IsStarItem));
        const std::size_t plain = select_.items.size() - stars;
        if (plain > columns_.size()) return std::nullopt;
        const std::size_t starWidth = stars == 0 ? 0 : (columns_.size() - plain) / stars;
        if (plain + stars * starWidth != columns_.size()) return std::nullopt;

        std::vector<std::string> items;
        std::size_t column = 0;
        for (const auto item : select_.items) {
            const std::size_t width = IsStarItem(item) ? starWidth : 1;
            const auto first = plan.sizeColumns.begin() + static_cast<std::ptrdiff_t>(column);
            const bool hasDeferred = std::any_of(first, first + static_cast<std::ptrdiff_t>(width),
                                                 [](std::int32_t size) { return size >= 0; });
            if (!hasDeferred) {
                items.emplace_back(item);
            } else {
                for (std::size_t i = column; i < column + width; ++i) items.push_back(ItemFor(plan, i));
            }
            column += width;
        }
        items.insert(items.end(), added_.begin(), added_.end());

        std::string text(select_.opening);
        for (const auto& item : items) {
            if (&item != &items.front()) text += ", ";
            text += item;
        }
        text += ' ';
        text += select_.tail;
        return text;
    }

    // Asking for the length alone does not read the value.
    static std::string ItemFor(const PostgresqlPlan& plan, std::size_t column) {
        const auto& name = plan.names[column];
        if (plan.sizeColumns[column] < 0) return name;
        return "CASE WHEN octet_length(" + name + ") <= " + std::to_string(kPostgresqlBytesInRow) + " THEN " +
               name + " END";
    }

    PostgresqlSession& session_;
    const SelectText& select_;
    std::span<const ColumnInfo> columns_;
    std::vector<Origin> origins_;
    std::vector<std::string> added_;
    bool isByPlace_ = false;
};

}  // namespace

bool PostgresqlPlan::HasDeferred() const {
    return std::any_of(sizeColumns.begin(), sizeColumns.end(), [](std::int32_t size) { return size >= 0; });
}

std::optional<PostgresqlPlan> PlanPostgresqlQuery(PostgresqlSession& session, std::string_view text,
                                                  const PGresult* description,
                                                  std::span<const ColumnInfo> columns, Purpose purpose) {
    const auto isLong = [](const ColumnInfo& column) { return (column.attributes & adFldLong) != 0; };
    if (purpose == Purpose::Read && std::none_of(columns.begin(), columns.end(), isLong)) return std::nullopt;
    const auto select = ReadSelectText(text, SqlDialect::Postgresql);
    if (!select || select->tables.empty()) return std::nullopt;
    Planner planner(session, *select, description, columns);
    if (select->tables.size() == 1) return planner.PlanOne(purpose);
    return purpose == Purpose::Change ? planner.PlanJoin(text) : std::nullopt;
}

}  // namespace halvtiv::ado
