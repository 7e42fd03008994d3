#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "copy/column_type.hpp"
#include "copy/dialect.hpp"

namespace halvtiv::cli::copy {

struct Column {
    std::string name;
    ColumnType type;
    bool isNullable = true;
    bool isAutoNumber = false;  ///< the database gives new rows a number
    bool isComputed = false;
    std::optional<std::string> defaultText;  ///< an expression in the database's own words
};

struct Index {
    std::string name;
    std::vector<std::string> columns;
    bool isUnique = false;
};

struct ForeignKey {
    std::vector<std::string> columns;
    std::string parent;
    std::vector<std::string> parentColumns;  ///< empty: the parent's primary key
    std::string onDelete, onUpdate;          ///< "CASCADE", "SET NULL", ...; "" for none
};

/// A table as its database describes it.
struct Table {
    std::string name;
    std::vector<Column> columns;
    std::vector<std::string> primaryKey;
    std::vector<Index> indexes;  ///< without the primary key's
    std::vector<ForeignKey> foreignKeys;
    /// Names of indexes of which this description lacks something: an expression, a condition, a length.
    std::vector<std::string> specialIndexes;
    /// The database's own number of each row, under a name that no column has; "" where there is none.
    std::string rowNumber;
    bool hasHeirs = false;               ///< reading it gives the rows of other tables, too
    std::vector<std::string> inherited;  ///< the tables whose rows include this one's

    const Column* FindColumn(std::string_view column) const;
    /// In how many columns the largest key, index or foreign key with this column is; 0 for none.
    int KeyColumns(std::string_view column) const;
    /// One of the same columns, whatever its name; likewise the next.
    bool HasIndex(const Index& index) const;
    bool HasForeignKey(const ForeignKey& key) const;
};

/// The user tables of the connection's own database or schema, by name.
std::vector<Table> ReadTables(const Database& database);
/// The table of that name, else the only one that has it in another letter case; null for none.
const Table* FindTable(const std::vector<Table>& tables, std::string_view name);
/// What stands behind FROM for the table's rows, without those of tables that inherit from it.
std::string OwnRows(Dialect dialect, const Table& table);
std::int64_t CountRows(const Database& database, const Table& table);
/// What else there is that is no table: "2 views", "1 trigger"; "" for nothing.
std::string OtherObjects(const Database& database);

/// Parents before children, as far as foreign keys have no circle; by name otherwise.
void SortByForeignKeys(std::vector<Table>& tables);

}  // namespace halvtiv::cli::copy
