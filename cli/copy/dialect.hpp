#pragma once

#include <cstdint>
#include <halvtiv/ado.hpp>
#include <halvtiv/error_info.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "copy/column_type.hpp"

namespace halvtiv::cli::copy {

/// One end of a copy.
struct Database {
    ado::ConnectionPtr connection;
    Dialect dialect = Dialect::Sqlite;
};

/// The SQL that a database speaks. Raises `CommandError` (not run) for one that cannot be copied from.
Dialect DialectOf(const ado::Connection& connection);

/// The name as it stands in a statement.
std::string QuotedName(Dialect dialect, std::string_view name);
/// "a", "b", "c"
std::string QuotedNames(Dialect dialect, const std::vector<std::string>& names);

/// Appends a value, not null, as a statement takes it for a column of this kind. Raises `ErrorInfo` for a
/// text that the database cannot hold.
void AppendLiteral(std::string& sql, Dialect dialect, Kind kind, std::string_view value);
/// The same text where it is one value in SQLite's words, as it quotes them itself; raises `ErrorInfo` for
/// another, which would change a statement's meaning.
const std::string& RequireSqliteLiteral(const std::string& text);
/// The truth value that a text of any database means; null for others.
std::optional<bool> BooleanOf(std::string_view text);
/// Whether a moment says so, as "2024-02-29T12:00:00Z" does.
bool IsInUtc(std::string_view moment);
std::string TextLiteral(Dialect dialect, std::string_view text);

/// A cell of a small result.
using Cell = std::optional<std::string>;
/// All rows of a query whose result is small.
std::vector<std::vector<Cell>> RowsOf(const Database& database, std::string_view sql);
/// The first cell of a query; null without rows.
Cell ScalarOf(const Database& database, std::string_view sql);
/// Runs all statements of a text.
void RunAll(const Database& database, std::string_view sql);

/// Undoes what it has begun unless it is committed.
class Transaction {
public:
    explicit Transaction(ado::ConnectionPtr connection);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    void Commit();

private:
    ado::ConnectionPtr connection_;
    bool isOpen_ = true;
};

}  // namespace halvtiv::cli::copy
