#include "copy/copy_plan.hpp"

#include <algorithm>
#include <functional>
#include <set>
#include <utility>

#include "command_error.hpp"
#include "copy/table_reader.hpp"
#include "platform/text.hpp"

namespace halvtiv::cli::copy {
namespace {

[[noreturn]] void Refuse(const std::string& message) {
    throw CommandError(ExitStatus::NotRun, message);
}

/// Its truth values are small numbers; where other numbers are among them, numbers are meant.
void TellNumbersFromTruth(const Database& source, std::vector<Table>& tables) {
    if (source.dialect != Dialect::MariaDb) return;
    for (Table& table : tables) {
        for (Column& column : table.columns) {
            if (column.type.kind != Kind::Boolean || !column.type.declared.starts_with("tinyint")) continue;
            const std::string name = QuotedName(source.dialect, column.name);
            const bool hasNumbers = ScalarOf(source, "select 1 from " + OwnRows(source.dialect, table) +
                                                         " where " + name + " not in (0, 1) limit 1")
                                        .has_value();
            if (hasNumbers) column.type.kind = Kind::SmallInt;
        }
    }
}

std::vector<Table> ChosenTables(const Database& source, const std::vector<std::string>& names) {
    std::vector<Table> all = ReadTables(source);
    std::vector<Table> chosen;
    std::set<std::string> taken;
    for (const std::string& name : names) {
        const Table* const table = FindTable(all, name);
        if (table == nullptr) Refuse("The source has no table " + name + '.');
        if (taken.insert(table->name).second) chosen.push_back(*table);
    }
    if (names.empty()) chosen = std::move(all);
    if (chosen.empty()) Refuse("The source has no tables.");
    TellNumbersFromTruth(source, chosen);
    SortByForeignKeys(chosen);
    return chosen;
}

/// Which column goes where.
void PairColumns(TableCopy& copy, Dialect sourceDialect, Dialect targetDialect) {
    for (const Column& column : copy.source.columns) {
        const Column* const target =
            copy.target.FindColumn(TranslatedName(sourceDialect, targetDialect, column.name));
        if (target == nullptr) {
            Refuse("Table " + copy.target.name + " on the target has no column " + column.name + '.');
        }
        if (target->isComputed) continue;
        copy.from.push_back(&column);
        copy.to.push_back(target);
    }
}

void RequireOwnRows(const Database& target, const TableCopy& copy) {
    const std::int64_t rows = copy.isThere ? CountRows(target, copy.target) : 0;
    if (rows == copy.state.rows) return;
    if (copy.state.rows == 0) {
        Refuse("Table " + copy.target.name + " on the target has rows already, " + std::to_string(rows) +
               " of them: it is to be empty, or missing.");
    }
    Refuse("Table " + copy.target.name + " on the target has " + std::to_string(rows) +
           " rows, but this copy has "
           "brought " +
           std::to_string(copy.state.rows) +
           ": it has been changed meanwhile. To begin again, empty it "
           "and drop the table halvtiv_copy.");
}

/// Of a table that comes from another kind of database: compares texts byte by byte, as most do, and blanks
/// at their ends count. Of another, its own.
std::string CollationFor(const Database& source, const Database& target, const std::string& table) {
    if (target.dialect != Dialect::MariaDb) return "";
    if (source.dialect == Dialect::MariaDb) {
        return ScalarOf(source,
                        "select table_collation from information_schema.tables where table_schema = "
                        "database() and "
                        "table_name = " +
                            TextLiteral(source.dialect, table))
            .value_or("");
    }
    return ScalarOf(target,
                    "select collation_name from information_schema.collations where collation_name in "
                    "('utf8mb4_nopad_bin', 'utf8mb4_0900_bin')")
        .value_or("utf8mb4_bin");
}

/// Runs what may fail without making the copied rows wrong.
void Try(const Database& target, const std::string& what, const std::string& sql,
         std::vector<std::string>& failures) {
    try {
        RunAll(target, sql);
    } catch (const ErrorInfo& error) {
        failures.push_back(what + " could not be made: " + error.Description);
    }
}

void DropMissingParents(const Database& target, const std::vector<TableCopy>& tables, TableCopy& copy) {
    if (copy.isThere) return;
    const std::vector<Table> there = ReadTables(target);
    std::erase_if(copy.target.foreignKeys, [&](const ForeignKey& key) {
        const bool isKnown = FindTable(there, key.parent) != nullptr ||
                             std::any_of(tables.begin(), tables.end(), [&](const TableCopy& other) {
                                 return platform::EqualIgnoringCase(other.target.name, key.parent);
                             });
        if (!isKnown) copy.lacks.push_back("the foreign key to " + key.parent);
        return !isKnown;
    });
}

}  // namespace

std::string IdentityOf(const Database& source) {
    std::string sql;
    switch (source.dialect) {
        case Dialect::Sqlite:
            sql = "select file from pragma_database_list where name = 'main'";
            break;
        case Dialect::Postgresql:
            sql =
                "select concat(current_database(), ' ', current_schema(), ' ', inet_server_addr(), ' ', "
                "inet_server_port())";
            break;
        case Dialect::MariaDb:
            sql = "select concat(database(), ' ', @@hostname, ' ', @@port)";
            break;
        case Dialect::SqlServer:
            sql = "select concat(db_name(), ' ', schema_name(), ' ', @@servername)";
            break;
        case Dialect::Access:
            return "Access";
    }
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char byte : ScalarOf(source, sql).value_or("")) {
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3U;
    }
    return source.connection->DatabaseName() + ' ' + std::to_string(hash);
}

std::vector<TableCopy> PlanCopy(const Database& source, const Database& target, const CopyState& state,
                                const std::vector<std::string>& names) {
    const std::vector<Table> there = ReadTables(target);
    std::vector<TableCopy> tables;
    std::set<std::string> targetNames;
    for (Table& table : ChosenTables(source, names)) {
        TableCopy& copy = tables.emplace_back();
        copy.source = std::move(table);
        if (const TableState* const known = state.Find(copy.source.name)) copy.state = *known;
        TranslatedTable translated = Translate(source.dialect, target.dialect, copy.source);
        const Table* const found = FindTable(there, translated.table.name);
        copy.isThere = found != nullptr;
        copy.target = std::move(translated.table);
        if (found != nullptr) {
            // What this copy has made may lack the keys that it is to get.
            if (!copy.state.isCreated) copy.target = *found;
            copy.target.name = found->name;
        }
        if (!copy.isThere || copy.state.isCreated) copy.lacks = std::move(translated.lacks);
        if (!targetNames.insert(platform::ToLower(copy.target.name)).second) {
            Refuse("Two tables of the source would be called " + copy.target.name + " on the target.");
        }
        RequireOwnRows(target, copy);
    }
    for (const auto& [name, known] : state.Tables()) {
        const bool isPlanned =
            std::any_of(tables.begin(), tables.end(),
                        [&name = name](const TableCopy& copy) { return copy.source.name == name; });
        if (!isPlanned) {
            Refuse("The target has an unfinished copy of other tables, too, such as " + name +
                   ": start the command that began it.");
        }
    }
    // Only now do the tables stay where they are in memory.
    for (TableCopy& copy : tables) {
        PairColumns(copy, source.dialect, target.dialect);
        copy.sourceRows = CountRows(source, copy.source);
        DropMissingParents(target, tables, copy);
    }
    return tables;
}

void MakeTables(const Database& source, const Database& target, CopyState& state,
                std::vector<TableCopy>& tables) {
    state.Begin();
    for (TableCopy& copy : tables) {
        // Noted first: a table that is noted and missing is made by the next run.
        if (!copy.isThere) copy.state.isCreated = true;
        state.Save(copy.source.name, copy.state);
        if (copy.isThere) continue;
        try {
            const std::string collation = CollationFor(source, target, copy.source.name);
            RunAll(target, CreateTableText(target.dialect, copy.target, collation));
        } catch (const ErrorInfo& error) {
            throw CommandError(ExitStatus::Failed,
                               "Table " + copy.target.name + " could not be made: " + error.Description);
        }
        copy.isThere = true;
    }
}

std::vector<std::string> CompleteTables(const Database& target, const std::vector<TableCopy>& tables) {
    std::vector<std::string> failures;
    const std::vector<Table> there = ReadTables(target);
    const auto forEach = [&](const std::function<void(const Table& wanted, const Table& made)>& action) {
        for (const TableCopy& copy : tables) {
            if (!copy.state.isCreated) continue;
            if (const Table* const made = FindTable(there, copy.target.name)) action(copy.target, *made);
        }
    };
    forEach([&](const Table& wanted, const Table& made) {
        for (const Index& index : wanted.indexes) {
            if (made.HasIndex(index)) continue;
            Try(target, "Index " + index.name + " of table " + made.name,
                CreateIndexText(target.dialect, wanted, index), failures);
        }
    });
    forEach([&](const Table& wanted, const Table& made) {
        for (const ForeignKey& key : wanted.foreignKeys) {
            if (made.HasForeignKey(key)) continue;
            Try(target, "The foreign key of table " + made.name + " to " + key.parent,
                AddForeignKeyText(target.dialect, made.name, key), failures);
        }
    });
    for (const TableCopy& copy : tables) {
        for (const Column* column : copy.to) {
            if (!column->isAutoNumber) continue;
            const std::string sql = ContinueNumbersText(target.dialect, copy.target.name, column->name);
            if (!sql.empty()) Try(target, "The next number of table " + copy.target.name, sql, failures);
        }
        if (target.dialect != Dialect::Sqlite) continue;
        const Cell wrong = ScalarOf(target, "select count(*) from pragma_foreign_key_check(" +
                                                TextLiteral(target.dialect, copy.target.name) + ')');
        if (wrong && *wrong != "0") {
            failures.push_back("Table " + copy.target.name + ": " + *wrong +
                               " rows name a parent that is not there");
        }
    }
    return failures;
}

}  // namespace halvtiv::cli::copy
