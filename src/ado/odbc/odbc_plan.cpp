#include "ado/odbc/odbc_plan.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include <halvtiv/ado.hpp>

#include "ado/odbc/odbc_catalog.hpp"
#include "ado/select_text.hpp"
#include "ado/sql_scanner.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

using platform::EqualIgnoringCase;

/// Where a visible column comes from.
struct Origin {
    OdbcTableName table;
    std::string column;  ///< "" for a computed one
};

class Planner {
public:
    Planner(OdbcSession& session, const SelectText& select, std::span<const OdbcColumn> columns)
        : session_(session), select_(select), columns_(columns) {}

    OdbcPlan Plan(SQLHSTMT statement, const std::string& text) {
        FindOrigins(statement);
        auto target = std::make_shared<ChangeTarget>();
        std::vector<std::string> added;
        for (std::size_t i = 0; i < origins_.size(); ++i) {
            const auto& origin = origins_[i];
            ChangeTarget::Column column;
            if (!origin.column.empty()) {
                column = {PlaceOfTable(*target, origin.table, added), Quoted(origin.column),
                          columns_[i].isComparable, ComparesFloats(columns_[i].info.type),
                          NullTest(columns_[i].info.type, origin.column)};
            }
            target->columns.push_back(std::move(column));
        }
        const bool hasKey = std::any_of(target->tables.begin(), target->tables.end(),
                                        [](const auto& table) { return !table.key.empty(); });
        if (!hasKey && !TakesNewRows()) return {};
        target->width = static_cast<std::int32_t>(columns_.size() + added.size());
        return OdbcPlan{added.empty() ? text : TextWith(added), std::move(target)};
    }

private:
    std::string Quoted(std::string_view name) const { return QuotedOdbcName(session_.Traits(), name); }
    // A number of 32 bits would be compared with one of 64. SQLite's driver gives fewer digits.
    bool ComparesFloats(std::int32_t type) const {
        const auto dialect = session_.Traits().dialect;
        return type == adDouble && (dialect == OdbcDialect::MariaDb || dialect == OdbcDialect::PostgreSql);
    }
    // Rows that cannot be told apart can still be added to.
    bool TakesNewRows() const {
        return names_.size() == 1 && IsOfOneTable() &&
               EqualIgnoringCase(select_.tables.front().name, names_.front().table) &&
               IsOdbcTable(session_, names_.front());
    }
    // A date of zeros, which a server that is not strict takes, is read as null.
    std::string NullTest(std::int32_t type, std::string_view name) const {
        const bool isDate = type == adDBDate || type == adDBTimeStamp;
        if (!isDate || session_.Traits().dialect != OdbcDialect::MariaDb) return {};
        return "(" + Quoted(name) + " IS NULL OR " + Quoted(name) + " = 0)";
    }
    bool IsOfOneTable() const { return select_.tables.size() == 1; }

    void FindOrigins(SQLHSTMT statement) {
        const bool isWide = session_.Traits().isWide;
        bool isKnown = false;
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            const auto number = static_cast<SQLUSMALLINT>(i + 1);
            Origin origin;
            origin.table.table = OdbcColumnText(statement, number, SQL_DESC_BASE_TABLE_NAME, isWide);
            if (!origin.table.table.empty()) {
                origin.column = OdbcColumnText(statement, number, SQL_DESC_BASE_COLUMN_NAME, isWide);
                // That driver gives the name that the query gives the column.
                if (session_.Traits().dialect == OdbcDialect::Sqlite) {
                    origin.column = SelectedColumn(i, origin.column);
                }
                origin.table.catalog = OdbcColumnText(statement, number, SQL_DESC_CATALOG_NAME, isWide);
                origin.table.schema = OdbcColumnText(statement, number, SQL_DESC_SCHEMA_NAME, isWide);
            }
            isKnown = isKnown || !origin.column.empty();
            origins_.push_back(std::move(origin));
        }
        if (!isKnown && IsOfOneTable()) GuessOrigins();
    }

    // A driver that tells nothing: the columns of the query's one table that its select list names.
    void GuessOrigins() {
        OdbcTableName table;
        table.table = select_.tables.front().name;
        if (session_.Traits().dialect != OdbcDialect::Sqlite) table.schema = select_.tables.front().schema;
        const auto known = FindOdbcColumns(session_, table);
        const auto isOfTable = [&](std::string_view name) {
            return std::any_of(known.begin(), known.end(),
                               [&](const auto& column) { return EqualIgnoringCase(column, name); });
        };
        for (std::size_t i = 0; i < columns_.size(); ++i) {
            const auto name = SelectedColumn(i, columns_[i].info.name);
            if (isOfTable(name)) origins_[i] = {table, name};
        }
    }

    // The table's column that a visible one is, as far as the select list tells: "*" under its own name, a
    // name with or without another one behind it; "" for all else.
    std::string SelectedColumn(std::size_t column, const std::string& ownName) const {
        if (std::any_of(select_.items.begin(), select_.items.end(), IsStarItem)) {
            return select_.items.size() == 1 ? ownName : "";
        }
        if (column >= select_.items.size()) return {};
        SqlScanner scanner(select_.items[column]);
        auto name = scanner.Next();
        auto next = scanner.Next();
        for (; next.IsSymbol('.'); next = scanner.Next()) name = scanner.Next();
        if (!name.IsName()) return {};
        if (next.IsWord("as")) next = scanner.Next();
        if (next.IsName()) next = scanner.Next();
        return next.kind == SqlToken::Kind::End ? name.Name() : "";
    }

    std::int32_t PlaceOfTable(ChangeTarget& target, const OdbcTableName& table,
                              std::vector<std::string>& added) {
        for (std::size_t i = 0; i < names_.size(); ++i) {
            if (names_[i] == table) return static_cast<std::int32_t>(i);
        }
        names_.push_back(table);
        ChangeTarget::Table made{
            QuotedOdbcName(session_.Traits(), table), table.schema, table.table, {}, false, ""};
        const auto timesNamed = std::count_if(
            select_.tables.begin(), select_.tables.end(),
            [&](const SelectText::TableRef& ref) { return EqualIgnoringCase(ref.name, table.table); });
        // A view's columns come from tables that the query does not name.
        if (timesNamed == 1) made.key = KeyOf(table, made, added);
        target.tables.push_back(std::move(made));
        return static_cast<std::int32_t>(target.tables.size()) - 1;
    }

    std::vector<ChangeTarget::KeyColumn> KeyOf(const OdbcTableName& table, ChangeTarget::Table& made,
                                               std::vector<std::string>& added) const {
        std::vector<ChangeTarget::KeyColumn> key;
        const auto names = FindOdbcKey(session_, table);
        for (const auto& name : names) {
            auto place = PlaceOfColumn(table, name);
            if (place < 0) {
                if (!IsOfOneTable()) return {};
                place = static_cast<std::int32_t>(columns_.size() + added.size());
                added.push_back(Quoted(name));
            } else if (names.size() == 1) {
                made.keyIsRowId = columns_[static_cast<std::size_t>(place)].isAutoNumber;
            }
            key.push_back({Quoted(name), place});
        }
        return key;
    }

    std::int32_t PlaceOfColumn(const OdbcTableName& table, std::string_view column) const {
        for (std::size_t i = 0; i < origins_.size(); ++i) {
            const bool isIt = origins_[i].table == table && EqualIgnoringCase(origins_[i].column, column);
            if (isIt) return static_cast<std::int32_t>(i);
        }
        return -1;
    }

    std::string TextWith(const std::vector<std::string>& added) const {
        std::string text(select_.opening);
        bool isFirst = true;
        const auto append = [&](std::string_view item) {
            if (!std::exchange(isFirst, false)) text += ", ";
            text += item;
        };
        for (const auto item : select_.items) append(item);
        for (const auto& item : added) append(item);
        text += ' ';
        text += select_.tail;
        return text;
    }

    OdbcSession& session_;
    const SelectText& select_;
    std::span<const OdbcColumn> columns_;
    std::vector<Origin> origins_;
    std::vector<OdbcTableName> names_;  // of the target's tables
};

}  // namespace

OdbcPlan PlanOdbcQuery(OdbcSession& session, SQLHSTMT statement, const std::string& text,
                       std::span<const OdbcColumn> columns) {
    if (session.Traits().dialect == OdbcDialect::Access) return {};
    const auto select = ReadSelectText(text);
    if (!select || select->tables.empty()) return {};
    return Planner(session, *select, columns).Plan(statement, text);
}

}  // namespace halvtiv::ado
