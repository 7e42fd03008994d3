#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ado/provider.hpp"
#include "ado/sqlite/sqlite_plan.hpp"

struct sqlite3;
struct sqlite3_stmt;

namespace halvtiv::ado {

struct FinalizeSqliteStatement {
    void operator()(sqlite3_stmt* statement) const noexcept;
};
using SqliteStatementHandle = std::unique_ptr<sqlite3_stmt, FinalizeSqliteStatement>;

/// A prepared statement with what is known of its columns, which stays right from one run to the next.
class SqliteStatement {
public:
    /// text is the command text that was prepared, "" where it is not to be kept; consumed is the length of
    /// its first statement.
    SqliteStatement(SqliteStatementHandle handle, std::string text, std::size_t consumed, Purpose purpose);

    /// Null after the session has been closed.
    sqlite3_stmt* Handle() const noexcept { return handle_.get(); }
    const std::string& Text() const noexcept { return text_; }
    std::size_t Consumed() const noexcept { return consumed_; }
    Purpose PreparedFor() const noexcept { return purpose_; }
    /// Those of the command text, whatever else the plan adds.
    std::span<const ColumnInfo> Columns() const noexcept { return columns_; }
    /// Null where the query runs as it stands.
    const SqlitePlan* Plan() const noexcept { return plan_ ? &*plan_ : nullptr; }
    /// A reader's layout of these columns; forgotten when they change.
    std::shared_ptr<const RowLayout>& Layout() noexcept { return layout_; }

    /// Brings the columns up to date after the first step of a run: the schema may have changed since the
    /// last one, and a column without a declared type has that of the first row's value. False when a changed
    /// schema has outdated the plan: the statement must be prepared anew.
    bool RefreshColumns(bool hasRow);
    /// Runs a plan instead of the query, whose columns are known by now. guard reads no row of the plan's
    /// tables: that it had to be prepared again tells that the plan is outdated, without running it.
    void Follow(SqlitePlan plan, SqliteStatementHandle planned, SqliteStatementHandle guard);
    /// Null where the query runs as it stands.
    sqlite3_stmt* Guard() const noexcept { return guard_.get(); }
    /// Frees the statement; the session is closing.
    void Drop() noexcept {
        handle_.reset();
        guard_.reset();
    }

    /// How often it has been prepared: again whenever the schema has changed.
    int TimesPrepared() const noexcept;

private:
    void ReadColumns(int count);

    SqliteStatementHandle handle_;
    SqliteStatementHandle guard_;
    std::string text_;
    std::size_t consumed_;
    Purpose purpose_;
    std::optional<SqlitePlan> plan_;
    std::vector<ColumnInfo> columns_;
    std::shared_ptr<const RowLayout> layout_;
    std::vector<int> untyped_;  // the columns whose type is that of the first row's value
    int timesPrepared_ = 0;
};

/// Statements that are not in use, for the next run of the same text: at most 64, the longest unused goes
/// first.
class SqliteStatementCache {
public:
    /// Texts beyond this length are scripts or carry their data: not kept.
    static constexpr std::size_t kLongestText = 8192;

    /// The statement of that text, out of the cache; null when there is none.
    std::unique_ptr<SqliteStatement> Take(std::string_view text, Purpose purpose);
    void Keep(std::unique_ptr<SqliteStatement> statement);
    void Clear() noexcept { entries_.clear(); }

private:
    struct Entry {
        std::size_t hash;
        std::unique_ptr<SqliteStatement> statement;
    };
    std::vector<Entry> entries_;  // the longest unused in front
};

}  // namespace halvtiv::ado
