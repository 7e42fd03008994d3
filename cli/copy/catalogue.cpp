#include "copy/catalogue.hpp"

#include <algorithm>
#include <charconv>
#include <set>
#include <utility>

#include "copy/catalogue_queries.hpp"
#include "copy/copy_state.hpp"
#include "platform/text.hpp"

namespace halvtiv::cli::copy {
namespace {

bool IsTrue(const Cell& cell) {
    return cell && (*cell == "1" || *cell == "True");
}

Table* FindExactly(std::vector<Table>& tables, const std::string& name) {
    const auto found =
        std::find_if(tables.begin(), tables.end(), [&](const Table& table) { return table.name == name; });
    return found == tables.end() ? nullptr : &*found;
}

void ReadColumns(const Database& database, std::vector<Table>& tables) {
    for (const auto& row : RowsOf(database, QueriesOf(database.dialect).columns)) {
        const std::string name = row.at(0).value_or("");
        if (platform::EqualIgnoringCase(name, kStateTable)) continue;
        if (tables.empty() || tables.back().name != name) {
            tables.emplace_back().name = name;
            tables.back().rowNumber = row.at(7).value_or("");
        }
        Column& column = tables.back().columns.emplace_back();
        column.name = row.at(1).value_or("");
        column.type = ReadType(database.dialect, row.at(2).value_or(""));
        column.type.declared += row.at(8).value_or("");
        column.isNullable = IsTrue(row.at(3));
        column.isAutoNumber = IsTrue(row.at(4));
        column.isComputed = IsTrue(row.at(5));
        column.defaultText = row.at(6);
    }
}

void ReadKeys(const Database& database, std::vector<Table>& tables) {
    for (const auto& row : RowsOf(database, QueriesOf(database.dialect).keys)) {
        Table* const table = FindExactly(tables, row.at(0).value_or(""));
        if (table == nullptr) continue;
        const std::string name = row.at(1).value_or("");
        const Cell& column = row.at(3);
        if (!column) {
            if (table->specialIndexes.empty() || table->specialIndexes.back() != name) {
                table->specialIndexes.push_back(name);
            }
        } else if (name.empty()) {
            table->primaryKey.push_back(*column);
        } else {
            if (table->indexes.empty() || table->indexes.back().name != name) {
                table->indexes.push_back({name, {}, IsTrue(row.at(2))});
            }
            table->indexes.back().columns.push_back(*column);
        }
    }
    for (Table& table : tables) {
        std::erase_if(table.indexes, [&table](const Index& index) {
            const auto& special = table.specialIndexes;
            return std::find(special.begin(), special.end(), index.name) != special.end();
        });
    }
}

void ReadForeignKeys(const Database& database, std::vector<Table>& tables) {
    std::string lastTable, lastKey;
    for (const auto& row : RowsOf(database, QueriesOf(database.dialect).foreignKeys)) {
        Table* const table = FindExactly(tables, row.at(0).value_or(""));
        if (table == nullptr) continue;
        const std::string key = row.at(1).value_or("");
        if (table->foreignKeys.empty() || lastTable != table->name || lastKey != key) {
            table->foreignKeys.push_back(
                {{}, row.at(3).value_or(""), {}, row.at(5).value_or(""), row.at(6).value_or("")});
        }
        lastTable = table->name;
        lastKey = key;
        ForeignKey& last = table->foreignKeys.back();
        last.columns.push_back(row.at(2).value_or(""));
        if (row.at(4)) last.parentColumns.push_back(*row.at(4));
        for (std::string* rule : {&last.onDelete, &last.onUpdate}) {
            if (*rule == "NO ACTION" || *rule == "RESTRICT") rule->clear();
        }
    }
}

void ReadHeirs(const Database& database, std::vector<Table>& tables) {
    const std::string_view sql = QueriesOf(database.dialect).heirs;
    if (sql.empty()) return;
    for (const auto& row : RowsOf(database, sql)) {
        if (Table* const parent = FindExactly(tables, row.at(0).value_or(""))) parent->hasHeirs = true;
        if (Table* const heir = FindExactly(tables, row.at(1).value_or(""))) {
            heir->inherited.push_back(row.at(0).value_or("a table of another schema"));
        }
    }
}

// Its driver knows no catalogue in SQL but the table of objects; the columns come from the table itself.
Kind KindOfField(std::int32_t type) {
    switch (type) {
        case ado::adBoolean:
            return Kind::Boolean;
        case ado::adUnsignedTinyInt:
            return Kind::TinyInt;
        case ado::adSmallInt:
        case ado::adTinyInt:
            return Kind::SmallInt;
        case ado::adInteger:
            return Kind::Integer;
        case ado::adBigInt:
            return Kind::BigInt;
        case ado::adSingle:
            return Kind::Single;
        case ado::adDouble:
            return Kind::Double;
        case ado::adCurrency:
        case ado::adNumeric:
            return Kind::Decimal;
        case ado::adBinary:
        case ado::adVarBinary:
        case ado::adLongVarBinary:
            return Kind::Blob;
        case ado::adDBDate:
            return Kind::Date;
        case ado::adDBTime:
            return Kind::Time;
        case ado::adDBTimeStamp:
            return Kind::Timestamp;
        case ado::adGUID:
            return Kind::Guid;
        default:
            return Kind::Text;
    }
}

std::vector<Table> ReadAccessTables(const Database& database) {
    std::vector<Table> tables;
    for (const auto& row : RowsOf(database, "select Name from MSysObjects where Type = 1")) {
        const std::string name = row.at(0).value_or("");
        if (name.empty() || name.starts_with("MSys") || name.starts_with('~')) continue;
        Table table;
        table.name = name;
        ado::Recordset rows;
        rows.Open("select * from " + QuotedName(database.dialect, name), database.connection,
                  ado::adOpenForwardOnly, ado::adLockReadOnly);
        for (std::int32_t i = 0; i < rows.Fields().Count(); ++i) {
            const ado::FieldPtr field = rows.Fields().Item(i);
            Column& column = table.columns.emplace_back();
            column.name = field->Name();
            column.type.kind = KindOfField(field->Type());
        }
        rows.Close();
        tables.push_back(std::move(table));
    }
    std::sort(tables.begin(), tables.end(),
              [](const Table& left, const Table& right) { return left.name < right.name; });
    return tables;
}

template <typename Names>
int CountIfHas(const Names& names, std::string_view column) {
    const bool has = std::any_of(names.begin(), names.end(), [column](const std::string& name) {
        return platform::EqualIgnoringCase(name, column);
    });
    return has ? static_cast<int>(names.size()) : 0;
}

bool SameNames(const std::vector<std::string>& left, const std::vector<std::string>& right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), platform::EqualIgnoringCase);
}

/// MariaDB's usual type of a number that it gives itself. Other databases have a type of that size, and give
/// numbers of that type only; one beyond its half is refused there. Outside keys all values have room.
void TakeKeysAsIntegers(std::vector<Table>& tables) {
    for (Table& table : tables) {
        for (Column& column : table.columns) {
            const bool isUnsigned = platform::ToLower(column.type.declared).starts_with("bigint") &&
                                    column.type.kind == Kind::Decimal;
            if (isUnsigned && table.KeyColumns(column.name) > 0) column.type.kind = Kind::BigInt;
        }
    }
}

std::string Counted(const Cell& count, const std::string& what) {
    if (!count || *count == "0") return "";
    return *count + ' ' + what + (*count == "1" ? "" : "s");
}

}  // namespace

const Column* Table::FindColumn(std::string_view column) const {
    const auto exact =
        std::find_if(columns.begin(), columns.end(), [&](const Column& one) { return one.name == column; });
    if (exact != columns.end()) return &*exact;
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const Column& one) {
        return platform::EqualIgnoringCase(one.name, column);
    });
    return found == columns.end() ? nullptr : &*found;
}

int Table::KeyColumns(std::string_view column) const {
    int most = CountIfHas(primaryKey, column);
    for (const Index& index : indexes) most = std::max(most, CountIfHas(index.columns, column));
    for (const ForeignKey& key : foreignKeys) most = std::max(most, CountIfHas(key.columns, column));
    return most;
}

bool Table::HasIndex(const Index& index) const {
    return std::any_of(indexes.begin(), indexes.end(), [&](const Index& one) {
        return one.isUnique == index.isUnique && SameNames(one.columns, index.columns);
    });
}

bool Table::HasForeignKey(const ForeignKey& key) const {
    return std::any_of(foreignKeys.begin(), foreignKeys.end(), [&](const ForeignKey& one) {
        return platform::EqualIgnoringCase(one.parent, key.parent) && SameNames(one.columns, key.columns);
    });
}

std::vector<Table> ReadTables(const Database& database) {
    if (database.dialect == Dialect::Access) return ReadAccessTables(database);
    std::vector<Table> tables;
    ReadColumns(database, tables);
    ReadKeys(database, tables);
    ReadForeignKeys(database, tables);
    ReadHeirs(database, tables);
    if (database.dialect == Dialect::MariaDb) TakeKeysAsIntegers(tables);
    return tables;
}

std::string OwnRows(Dialect dialect, const Table& table) {
    return (table.hasHeirs ? "only " : "") + QuotedName(dialect, table.name);
}

std::int64_t CountRows(const Database& database, const Table& table) {
    const Cell count = ScalarOf(database, "select count(*) from " + OwnRows(database.dialect, table));
    std::int64_t rows = 0;
    if (count) std::from_chars(count->data(), count->data() + count->size(), rows);
    return rows;
}

const Table* FindTable(const std::vector<Table>& tables, std::string_view name) {
    const Table* found = nullptr;
    for (const Table& table : tables) {
        if (table.name == name) return &table;
        if (!platform::EqualIgnoringCase(table.name, name)) continue;
        if (found != nullptr) return nullptr;
        found = &table;
    }
    return found;
}

std::string OtherObjects(const Database& database) {
    if (database.dialect == Dialect::Access) return "";
    const auto rows = RowsOf(database, QueriesOf(database.dialect).otherObjects);
    std::string text;
    std::size_t column = 0;
    for (const char* const what : {"view", "trigger", "virtual or foreign table"}) {
        const std::string counted = Counted(rows.at(0).at(column++), what);
        text += (text.empty() || counted.empty() ? "" : ", ") + counted;
    }
    return text;
}

void SortByForeignKeys(std::vector<Table>& tables) {
    std::vector<Table> waiting = std::exchange(tables, {});
    std::set<std::string> open;
    for (const Table& table : waiting) open.insert(platform::ToLower(table.name));
    while (!waiting.empty()) {
        auto next = std::find_if(waiting.begin(), waiting.end(), [&](const Table& table) {
            return std::none_of(table.foreignKeys.begin(), table.foreignKeys.end(),
                                [&](const ForeignKey& key) {
                                    return open.contains(platform::ToLower(key.parent)) &&
                                           !platform::EqualIgnoringCase(key.parent, table.name);
                                });
        });
        if (next == waiting.end()) next = waiting.begin();  // a circle, entered somewhere
        open.erase(platform::ToLower(next->name));
        tables.push_back(std::move(*next));
        waiting.erase(next);
    }
}

}  // namespace halvtiv::cli::copy
