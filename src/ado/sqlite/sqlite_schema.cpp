#include "ado/sqlite/sqlite_schema.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <span>

#include "ado/sql_scanner.hpp"
#include "ado/sqlite/sqlite_session.hpp"
#include "ado/sqlite/sqlite_statement.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

using platform::EqualIgnoringCase;

/// The rows of a query about the schema; parameters are texts. A query about what this library does not know
/// finds nothing; every other failure is raised, for it may have rolled back the open transaction.
class SchemaQuery {
public:
    SchemaQuery(sqlite3* database, const char* sql, std::span<const std::string> parameters)
        : database_(database) {
        sqlite3_stmt* prepared = nullptr;
        int status = sqlite3_prepare_v2(database, sql, -1, &prepared, nullptr);
        statement_.reset(prepared);
        if (status == SQLITE_ERROR) return;
        int place = 0;
        for (const auto& parameter : parameters) {
            if (status != SQLITE_OK) break;
            status = sqlite3_bind_text64(prepared, ++place, parameter.data(), parameter.size(), SQLITE_STATIC,
                                         SQLITE_UTF8);
        }
        if (status != SQLITE_OK) RaiseSqliteError(database, status);
    }
    bool Next() {
        if (!statement_) return false;
        const int status = sqlite3_step(statement_.get());
        if (status != SQLITE_ROW && status != SQLITE_DONE && status != SQLITE_ERROR) {
            RaiseSqliteError(database_, status);
        }
        return status == SQLITE_ROW;
    }
    std::string Text(int column) {
        const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
        if (!text && sqlite3_column_type(statement_.get(), column) != SQLITE_NULL) {
            RaiseSqliteError(database_, SQLITE_NOMEM);
        }
        return text ? text : "";
    }
    int Integer(int column) { return sqlite3_column_int(statement_.get(), column); }

private:
    sqlite3* database_;
    SqliteStatementHandle statement_;
};

}  // namespace

const SqliteTableColumn* SqliteTableFacts::Find(std::string_view name) const {
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const SqliteTableColumn& column) {
        return EqualIgnoringCase(column.name, name);
    });
    return found == columns.end() ? nullptr : &*found;
}

std::vector<const SqliteTableColumn*> SqliteTableFacts::PrimaryKey() const {
    std::vector<const SqliteTableColumn*> key;
    for (const auto& column : columns) {
        if (column.keyPosition > 0) key.push_back(&column);
    }
    std::sort(key.begin(), key.end(),
              [](const auto* left, const auto* right) { return left->keyPosition < right->keyPosition; });
    return key;
}

const SqliteTableColumn* SqliteTableFacts::RowIdAlias() const {
    const auto key = PrimaryKey();
    const bool isAlias =
        hasRowId && !keyHasIndex && key.size() == 1 && EqualIgnoringCase(key.front()->type, "integer");
    return isAlias ? key.front() : nullptr;
}

std::string SqliteTableFacts::RowIdName() const {
    constexpr std::array<const char*, 3> kNames{"rowid", "_rowid_", "oid"};
    if (!hasRowId) return {};
    const auto* const found =
        std::find_if(kNames.begin(), kNames.end(), [&](const char* name) { return !Find(name); });
    return found == kNames.end() ? "" : *found;
}

// What the database reads by row id is taken for another column where some are generated; and the value of a
// column that was added to its table is not in the older rows.
bool SqliteTableFacts::MayReadByRowId(std::string_view name) const {
    const auto isGenerated = [](const SqliteTableColumn& column) { return column.isGenerated; };
    const auto* const column = Find(name);
    return column && !column->hasDefault && std::none_of(columns.begin(), columns.end(), isGenerated);
}

// The database looks for it among the temporary tables first.
std::optional<SqliteSource> SqliteSourceOf(sqlite3* database, const SelectText::TableRef& ref) {
    const std::array names{ref.name, ref.schema};
    SchemaQuery list(database,
                     "select t.schema, t.type = 'view' from pragma_table_list(?1) as t, pragma_database_list "
                     "as d on d.name = t.schema where ?2 = '' or t.schema = ?2 collate nocase order by "
                     "t.schema <> 'temp', d.seq",
                     names);
    if (!list.Next()) return std::nullopt;
    return SqliteSource{list.Text(0), list.Integer(1) != 0};
}

// In the others, the bytes that are read by row id are not the text's.
bool IsUtf8SqliteDatabase(sqlite3* database) {
    SchemaQuery encoding(database, "select encoding from pragma_encoding", {});
    return encoding.Next() && encoding.Text(0) == "UTF-8";
}

SqliteTableFacts SqliteTableFactsOf(sqlite3* database, const std::string& schema, const std::string& table) {
    const std::array names{schema, table};
    SqliteTableFacts facts;
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
    SchemaQuery keyIndex(database, "select 1 from pragma_index_list(?2, ?1) where origin = 'pk'", names);
    facts.keyHasIndex = keyIndex.Next();
    return facts;
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
    const auto facts = SqliteTableFactsOf(database, schema, table);
    if (std::any_of(facts.columns.begin(), facts.columns.end(),
                    [](const SqliteTableColumn& other) { return other.isGenerated; })) {
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

std::string QuotedSqliteName(std::string_view name) {
    std::string quoted = "\"";
    for (const char c : name) {
        quoted += c;
        if (c == '"') quoted += c;
    }
    quoted += '"';
    return quoted;
}

}  // namespace halvtiv::ado
