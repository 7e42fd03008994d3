#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ado/select_text.hpp"

struct sqlite3;

namespace halvtiv::ado {

struct SqliteTableColumn {
    std::string name;
    std::string type;
    int keyPosition = 0;  // in the primary key, from 1; 0: not of it
    bool isGenerated = false;
    bool hasDefault = false;
};

/// What the schema says of a table. What cannot be found out counts as absent.
struct SqliteTableFacts {
    bool isTable = false;  // no view, and not virtual
    bool hasRowId = false;
    bool keyHasIndex = false;  // so the primary key is not the row id, whatever its type
    std::vector<SqliteTableColumn> columns;

    const SqliteTableColumn* Find(std::string_view name) const;
    std::vector<const SqliteTableColumn*> PrimaryKey() const;
    /// The column that is the row id under another name; null where there is none.
    const SqliteTableColumn* RowIdAlias() const;
    /// A name by which the row id can be asked for; "" where columns have taken all of them.
    std::string RowIdName() const;
    bool MayReadByRowId(std::string_view name) const;
};

SqliteTableFacts SqliteTableFactsOf(sqlite3* database, const std::string& schema, const std::string& table);

/// What a name in FROM stands for.
struct SqliteSource {
    std::string schema;
    bool isView = false;
};

std::optional<SqliteSource> SqliteSourceOf(sqlite3* database, const SelectText::TableRef& ref);

bool IsUtf8SqliteDatabase(sqlite3* database);

/// Whether a column's long value may be written into a row after the row itself: nothing looks at it while it
/// does not hold its value yet.
bool MayFillLater(sqlite3* database, const std::string& schema, const std::string& table,
                  const std::string& column);

/// A name as it stands in a statement.
std::string QuotedSqliteName(std::string_view name);

}  // namespace halvtiv::ado
