#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ado/cancel_switch.hpp"
#include "ado/provider.hpp"
#include "ado/sqlite/sqlite_statement.hpp"

namespace halvtiv::ado {

struct CloseSqlite {
    void operator()(sqlite3* database) const noexcept;
};
using SqliteHandle = std::unique_ptr<sqlite3, CloseSqlite>;

/// A connection to one SQLite file.
class SqliteSession final : public Session, public std::enable_shared_from_this<SqliteSession> {
public:
    /// busyTimeout: how long a statement waits for another connection's lock.
    SqliteSession(SqliteHandle database, std::chrono::milliseconds busyTimeout,
                  std::shared_ptr<CancelSwitch> cancel);
    ~SqliteSession() override;
    SqliteSession(const SqliteSession&) = delete;
    SqliteSession& operator=(const SqliteSession&) = delete;

    std::unique_ptr<Batch> Prepare(std::string commandText, Purpose purpose) override;
    RowChangeResult Change(const RowChange& change) override;
    std::string_view DatabaseName() const override { return "SQLite"; }
    std::vector<std::string> Files() const override;
    bool IsAlive() override { return database_ != nullptr; }
    bool IsClosed() const noexcept override { return closed_; }
    void Close() override;
    bool InTransaction() override;
    void Begin() override;
    void Commit() override;
    void Rollback() override;
    void SetSavepoint(std::int32_t level) override;
    void ReleaseSavepoint(std::int32_t level) override;
    void RollbackToSavepoint(std::int32_t level) override;
    void SetCommandTimeout(std::int32_t seconds) override;

    // For the batches and cursors of this session.

    /// A statement in use: goes back for the next run when it is destroyed.
    class Lease {
    public:
        Lease(std::shared_ptr<SqliteSession> session, std::unique_ptr<SqliteStatement> statement);
        ~Lease();
        Lease(Lease&&) noexcept = default;
        Lease& operator=(Lease&&) = delete;
        explicit operator bool() const noexcept { return statement_ != nullptr; }
        SqliteStatement& operator*() const noexcept { return *statement_; }
        SqliteStatement* operator->() const noexcept { return statement_.get(); }
        SqliteSession& Owner() const noexcept { return *session_; }
        const std::shared_ptr<SqliteSession>& SharedOwner() const noexcept { return session_; }
        /// Gives the statement up: it is prepared anew next time.
        void Discard() noexcept;

    private:
        std::shared_ptr<SqliteSession> session_;
        std::unique_ptr<SqliteStatement> statement_;
    };

    /// The first statement of the text, which a NUL must follow; empty where there are only blanks and
    /// comments. Raises -2146824579 after `Close`, -2147467259 once the connection is lost.
    Lease Acquire(std::string_view text, Purpose purpose);
    /// Runs to the next row; false at the end.
    bool Step(SqliteStatement& statement);
    /// Whether the tables of a statement for changes are no longer those that it was planned for, as far as
    /// can be told before it runs.
    bool IsOutdated(const SqliteStatement& statement);
    /// Null after `Close` and once the connection is lost.
    sqlite3* Database() const noexcept { return database_.get(); }
    /// Raises -2147217842 when the running work has been cancelled.
    void StopIfCancelled() {
        if (cancel_->IsThrown()) RaiseCancelled();
    }
    /// Readers of long values, which keep the database from closing and rows from changing.
    void AddReader(DeferredValues& reader) { readers_.push_back(&reader); }
    void RemoveReader(DeferredValues& reader) noexcept { std::erase(readers_, &reader); }
    /// Rows changed since this session was opened, by triggers too.
    std::int64_t TotalChanges() const;
    /// Rows changed by the last INSERT, UPDATE or DELETE.
    std::int64_t LastChanges() const;

private:
    using Clock = std::chrono::steady_clock;

    /// The statements of one savepoint level.
    struct Savepoint {
        SqliteStatementHandle set, release, rollback;
    };

    /// Raises why nothing can be done once there is no database.
    void RequireOpen() const {
        if (!database_) RaiseUnusable();
    }
    void Release(std::unique_ptr<SqliteStatement> statement) noexcept;
    void Forget(const SqliteStatement& statement) noexcept;
    void ReleaseReaders() noexcept;
    std::unique_ptr<SqliteStatement> PrepareFirst(std::string_view text, Purpose purpose);
    SqliteStatementHandle PrepareGuard(const SqlitePlan& plan);
    int PrepareInto(SqliteStatementHandle& handle, std::string_view text, bool isKept, const char** tail);
    SqliteStatementHandle PrepareHandle(std::string_view text, bool isKept, const char** tail = nullptr);
    /// Null for a text that the database does not take; other failures are raised.
    SqliteStatementHandle PrepareIfValid(const std::string& text, bool isKept);
    int StepOnce(sqlite3_stmt* statement);
    /// Runs a prepared statement that returns no rows.
    void Run(const SqliteStatementHandle& statement);
    /// Runs what undoes work, however often that has been cancelled.
    void RunToUndo(const SqliteStatementHandle& statement);
    /// Rolls back. Where that fails and the transaction stays open, the database is closed, which undoes it.
    void RollBackOrClose(const SqliteStatementHandle& statement);
    /// Rolls back to a savepoint, or the whole transaction, if one is open; raises nothing.
    void UndoAfterFailure(std::optional<std::int32_t> level) noexcept;
    /// Frees all statements and closes the database.
    void ReleaseDatabase() noexcept;
    RowChangeResult RunChange(const RowChange& change, bool inPieces);
    RowChangeResult ChangeInPieces(const RowChange& change);
    [[noreturn]] void RaiseCancelled();
    void StartClock() noexcept;
    bool MustStop() noexcept;
    [[noreturn]] void RaiseError(int status);
    static int StopWhenItMust(void* session);
    static int WaitForLock(void* session, int attempt);

    SqliteHandle database_;
    bool closed_ = false;  // by `Close`
    // Prepared before the work begins, so that undoing it needs no memory.
    SqliteStatementHandle begin_, commit_, rollback_;
    std::vector<Savepoint> savepoints_;  // by level
    SqliteStatementCache cache_;
    std::vector<SqliteStatement*> inUse_;   // owned by their leases
    std::vector<DeferredValues*> readers_;  // owned by their cursors
    std::shared_ptr<CancelSwitch> cancel_;
    bool undoing_ = false;  // cancelling has no hold on what undoes work
    // Until then the running change is not stopped: it would take the whole transaction with it.
    Clock::time_point undisturbedUntil_{};
    std::chrono::milliseconds busyTimeout_;
    std::chrono::seconds commandTimeout_{0};  // 0: no limit
    Clock::time_point deadline_{};
    Clock::time_point lockAwaitedSince_{};
    bool timedOut_ = false;            // why the running statement was stopped
    sqlite3_stmt* running_ = nullptr;  // null between steps
};

/// The source of SQLite's errors.
inline constexpr std::string_view kSqliteName = "SQLite";

/// Raises the database's last error with its number and words; code is what the failing call returned.
[[noreturn]] void RaiseSqliteError(sqlite3* database, int code);

}  // namespace halvtiv::ado
