#include "ado/sqlite/sqlite_session.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

#include "ado/errors.hpp"
#include "ado/sql_scanner.hpp"
#include "ado/sqlite/sqlite_batch.hpp"
#include "ado/sqlite/sqlite_plan.hpp"
#include "ado/sqlite/sqlite_schema.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::ado {
namespace {

AdoError KindOf(int code, std::string_view words) {
    switch (code & 0xff) {
        case SQLITE_CONSTRAINT:
            return AdoError::ConstraintViolation;
        case SQLITE_ERROR:
        case SQLITE_SCHEMA:  // the same, in the first statement of a connection
            return words.starts_with("no such table") ? AdoError::NoSuchTable : AdoError::SqlError;
        case SQLITE_MISMATCH:
        case SQLITE_TOOBIG:
        case SQLITE_RANGE:
        case SQLITE_AUTH:
            return AdoError::SqlError;
        case SQLITE_INTERRUPT:
            return AdoError::Cancelled;
        default:
            return AdoError::Unspecified;
    }
}

}  // namespace

void CloseSqlite::operator()(sqlite3* database) const noexcept {
    sqlite3_close(database);
}

void RaiseSqliteError(sqlite3* database, int code) {
    if ((code & 0xff) == SQLITE_NOMEM) platform::RaiseRunTimeError(platform::RunTimeError::OutOfMemory);
    const std::string_view words = sqlite3_errmsg(database);
    throw MakeProviderError(KindOf(code, words), words, kSqliteName);
}

SqliteSession::SqliteSession(SqliteHandle database, std::chrono::milliseconds busyTimeout,
                             std::shared_ptr<CancelSwitch> cancel)
    : database_(std::move(database)), cancel_(std::move(cancel)), busyTimeout_(busyTimeout) {
    constexpr int kStepsBetweenLooks = 1000;
    sqlite3_busy_handler(database_.get(), WaitForLock, this);
    sqlite3_progress_handler(database_.get(), kStepsBetweenLooks, StopWhenItMust, this);
    begin_ = PrepareHandle("BEGIN IMMEDIATE", true);
    commit_ = PrepareHandle("COMMIT", true);
    rollback_ = PrepareHandle("ROLLBACK", true);
}

SqliteSession::~SqliteSession() {
    Close();
}

std::unique_ptr<Batch> SqliteSession::Prepare(std::string commandText, Purpose purpose) {
    RequireOpen();
    if (commandText.find('\0') != std::string::npos) {
        throw MakeProviderError(AdoError::SqlError, kNulInCommand, kSqliteName);
    }
    if (const auto marker = BindMarkerOf(commandText); !marker.empty()) {
        throw MakeProviderError(AdoError::SqlError, UnboundMarker(marker), kSqliteName);
    }
    return std::make_unique<SqliteBatch>(shared_from_this(), std::move(commandText), purpose);
}

void SqliteSession::Close() {
    closed_ = true;
    ReleaseDatabase();
}

void SqliteSession::ReleaseDatabase() noexcept {
    ReleaseReaders();
    for (auto* statement : inUse_) statement->Drop();
    inUse_.clear();
    cache_.Clear();
    savepoints_.clear();
    rollback_.reset();
    commit_.reset();
    begin_.reset();
    database_.reset();
}

std::vector<std::string> SqliteSession::Files() const {
    std::vector<std::string> files;
    if (!database_) return files;
    const char* schema = nullptr;
    for (int index = 0; (schema = sqlite3_db_name(database_.get(), index)) != nullptr; ++index) {
        const char* const file = sqlite3_db_filename(database_.get(), schema);
        if (file != nullptr && *file != '\0') files.emplace_back(file);  // in memory otherwise
    }
    return files;
}

bool SqliteSession::InTransaction() {
    return database_ && sqlite3_get_autocommit(database_.get()) == 0;
}

void SqliteSession::Begin() {
    Run(begin_);
}

void SqliteSession::Commit() {
    try {
        Run(commit_);
    } catch (...) {
        UndoAfterFailure(std::nullopt);
        throw;
    }
}

void SqliteSession::Rollback() {
    RollBackOrClose(rollback_);
}

void SqliteSession::SetSavepoint(std::int32_t level) {
    const auto index = static_cast<std::size_t>(level);
    if (savepoints_.size() <= index) savepoints_.resize(index + 1);
    auto& savepoint = savepoints_[index];
    if (!savepoint.set) {
        const auto name = "SAVEPOINT halvtiv_" + std::to_string(level);
        Savepoint prepared{PrepareHandle(name, true), PrepareHandle("RELEASE " + name, true),
                           PrepareHandle("ROLLBACK TO " + name, true)};
        savepoint = std::move(prepared);
    }
    Run(savepoint.set);
}

void SqliteSession::ReleaseSavepoint(std::int32_t level) {
    RequireOpen();
    Run(savepoints_[static_cast<std::size_t>(level)].release);
}

void SqliteSession::RollbackToSavepoint(std::int32_t level) {
    RequireOpen();
    const auto& savepoint = savepoints_[static_cast<std::size_t>(level)];
    RollBackOrClose(savepoint.rollback);
    RunToUndo(savepoint.release);  // one that cannot be released is empty and ends with the transaction
}

void SqliteSession::UndoAfterFailure(std::optional<std::int32_t> level) noexcept {
    if (!InTransaction()) return;
    try {
        level ? RollbackToSavepoint(*level) : Rollback();
    } catch (...) {
        // The transaction is gone all the same, and the first error is the one that counts.
    }
}

void SqliteSession::SetCommandTimeout(std::int32_t seconds) {
    commandTimeout_ = std::chrono::seconds(std::max(seconds, 0));
}

SqliteSession::Lease::Lease(std::shared_ptr<SqliteSession> session,
                            std::unique_ptr<SqliteStatement> statement)
    : session_(std::move(session)), statement_(std::move(statement)) {}

SqliteSession::Lease::~Lease() {
    if (statement_) session_->Release(std::move(statement_));
}

void SqliteSession::Lease::Discard() noexcept {
    session_->Forget(*statement_);
    statement_.reset();
}

SqliteSession::Lease SqliteSession::Acquire(std::string_view text, Purpose purpose) {
    RequireOpen();
    inUse_.reserve(inUse_.size() + 1);
    auto statement = cache_.Take(text, purpose);
    if (!statement) statement = PrepareFirst(text, purpose);
    if (!statement) return {shared_from_this(), nullptr};
    inUse_.push_back(statement.get());
    return {shared_from_this(), std::move(statement)};
}

std::unique_ptr<SqliteStatement> SqliteSession::PrepareFirst(std::string_view text, Purpose purpose) {
    // Within the database's own limit on texts, which is below that of int.
    const auto limit = static_cast<std::size_t>(sqlite3_limit(database_.get(), SQLITE_LIMIT_SQL_LENGTH, -1));
    if (text.size() > limit) {
        throw MakeProviderError(AdoError::SqlError, kCommandTooLong, kSqliteName);
    }
    const bool isKept = text.size() <= SqliteStatementCache::kLongestText;
    StartClock();
    const char* tail = nullptr;
    auto handle = PrepareHandle(text, isKept, &tail);
    if (!handle) return nullptr;
    const auto consumed = static_cast<std::size_t>(tail - text.data());
    auto statement = std::make_unique<SqliteStatement>(std::move(handle), std::string(isKept ? text : ""),
                                                       consumed, purpose);
    if (sqlite3_column_count(statement->Handle()) == 0 || !sqlite3_stmt_readonly(statement->Handle())) {
        return statement;
    }
    statement->RefreshColumns(false);
    auto plan = PlanSqliteQuery(statement->Handle(), text.substr(0, consumed), statement->Columns(), purpose);
    if (!plan) return statement;
    // A query that does not take the other select list runs as it is.
    if (auto planned = PrepareIfValid(plan->text, isKept)) {
        auto guard = PrepareGuard(*plan);
        statement->Follow(*std::move(plan), std::move(planned), std::move(guard));
    }
    return statement;
}

SqliteStatementHandle SqliteSession::PrepareGuard(const SqlitePlan& plan) {
    std::string text = "SELECT 1 FROM ";
    if (plan.target) {
        for (const auto& table : plan.target->tables) {
            if (&table != &plan.target->tables.front()) text += ", ";
            text += table.name;
        }
    } else {
        text += QuotedSqliteName(plan.schema);
        text += '.';
        text += QuotedSqliteName(plan.table);
    }
    text += " LIMIT 0";
    return PrepareIfValid(text, true);
}

bool SqliteSession::IsOutdated(const SqliteStatement& statement) {
    auto* const guard = statement.Guard();
    if (!guard) return false;
    StopIfCancelled();
    StartClock();
    const int status = sqlite3_step(guard);
    const bool isMissing = (status & 0xff) == SQLITE_ERROR;  // one of the tables
    if (status != SQLITE_DONE && !isMissing) RaiseError(status);
    sqlite3_reset(guard);
    return isMissing || sqlite3_stmt_status(guard, SQLITE_STMTSTATUS_REPREPARE, 0) > 0;
}

int SqliteSession::PrepareInto(SqliteStatementHandle& handle, std::string_view text, bool isKept,
                               const char** tail) {
    sqlite3_stmt* prepared = nullptr;
    const int status = sqlite3_prepare_v3(database_.get(), text.data(), static_cast<int>(text.size() + 1),
                                          isKept ? SQLITE_PREPARE_PERSISTENT : 0U, &prepared, tail);
    handle.reset(prepared);
    return status;
}

SqliteStatementHandle SqliteSession::PrepareHandle(std::string_view text, bool isKept, const char** tail) {
    SqliteStatementHandle handle;
    const int status = PrepareInto(handle, text, isKept, tail);
    if (status != SQLITE_OK) RaiseError(status);
    return handle;
}

SqliteStatementHandle SqliteSession::PrepareIfValid(const std::string& text, bool isKept) {
    SqliteStatementHandle handle;
    const int status = PrepareInto(handle, text, isKept, nullptr);
    const bool isRefused = (status & 0xff) == SQLITE_ERROR || status == SQLITE_TOOBIG;
    if (status != SQLITE_OK && !isRefused) RaiseError(status);
    return handle;
}

void SqliteSession::Forget(const SqliteStatement& statement) noexcept {
    if (statement.Handle()) inUse_.erase(std::find(inUse_.begin(), inUse_.end(), &statement));
}

void SqliteSession::Release(std::unique_ptr<SqliteStatement> statement) noexcept {
    if (!statement->Handle()) return;
    Forget(*statement);
    sqlite3_reset(statement->Handle());
    try {
        cache_.Keep(std::move(statement));
    } catch (...) {
        // No room to keep it: it is prepared again next time.
    }
}

void SqliteSession::ReleaseReaders() noexcept {
    for (auto* reader : readers_) reader->Release();
}

int SqliteSession::StepOnce(sqlite3_stmt* statement) {
    RequireOpen();
    if (!undoing_) StopIfCancelled();
    StartClock();
    running_ = statement;
    const int status = sqlite3_step(statement);
    running_ = nullptr;
    return status;
}

bool SqliteSession::Step(SqliteStatement& statement) {
    const int status = StepOnce(statement.Handle());
    if (status == SQLITE_ROW) return true;
    if (status == SQLITE_DONE) return false;
    RaiseError(status);
}

void SqliteSession::RaiseError(int status) {
    if (timedOut_) {
        throw MakeProviderError(AdoError::CommandTimeout, MakeAdoError(AdoError::CommandTimeout).Description,
                                kSqliteName);
    }
    const bool wasStopped = (status & 0xff) == SQLITE_INTERRUPT || (status & 0xff) == SQLITE_BUSY;
    if (wasStopped && cancel_->IsThrown()) RaiseCancelled();
    RaiseSqliteError(database_.get(), status);
}

void SqliteSession::RaiseCancelled() {
    cancel_->Take();
    throw MakeProviderError(AdoError::Cancelled, MakeAdoError(AdoError::Cancelled).Description, kSqliteName);
}

void SqliteSession::StartClock() noexcept {
    timedOut_ = false;
    if (commandTimeout_.count() > 0) deadline_ = Clock::now() + commandTimeout_;
}

std::int64_t SqliteSession::TotalChanges() const {
    return sqlite3_total_changes64(database_.get());
}

std::int64_t SqliteSession::LastChanges() const {
    return sqlite3_changes64(database_.get());
}

void SqliteSession::Run(const SqliteStatementHandle& statement) {
    const int status = StepOnce(statement.get());
    sqlite3_reset(statement.get());
    if (status != SQLITE_DONE) RaiseError(status);
}

void SqliteSession::RunToUndo(const SqliteStatementHandle& statement) {
    const bool wasUndoing = std::exchange(undoing_, true);
    try {
        Run(statement);
    } catch (...) {
        undoing_ = wasUndoing;
        throw;
    }
    undoing_ = wasUndoing;
}

void SqliteSession::RollBackOrClose(const SqliteStatementHandle& statement) {
    try {
        RunToUndo(statement);
    } catch (...) {
        if (InTransaction()) ReleaseDatabase();
        throw;
    }
}

bool SqliteSession::MustStop() noexcept {
    if (commandTimeout_.count() > 0 && Clock::now() >= deadline_) timedOut_ = true;
    return timedOut_ || (!undoing_ && cancel_->IsThrown());
}

int SqliteSession::StopWhenItMust(void* session) {
    auto& self = *static_cast<SqliteSession*>(session);
    // Only a step is stopped, and not after its end, where the database asks once more: a BEGIN or COMMIT
    // that is done must not be said to have failed.
    const bool isStep = self.running_ != nullptr && sqlite3_stmt_busy(self.running_) != 0;
    return isStep && Clock::now() >= self.undisturbedUntil_ && self.MustStop() ? 1 : 0;
}

// Short waits at first, for locks are mostly held for the time of one commit.
int SqliteSession::WaitForLock(void* session, int attempt) {
    using std::chrono::milliseconds;
    constexpr std::array<milliseconds, 6> kWaits{milliseconds(1),  milliseconds(2),  milliseconds(5),
                                                 milliseconds(10), milliseconds(15), milliseconds(25)};
    auto& self = *static_cast<SqliteSession*>(session);
    const auto now = Clock::now();
    if (attempt == 0) self.lockAwaitedSince_ = now;
    const auto left =
        self.busyTimeout_ - std::chrono::duration_cast<milliseconds>(now - self.lockAwaitedSince_);
    if (left.count() <= 0 || self.MustStop()) return 0;
    const auto wait = kWaits[std::min(static_cast<std::size_t>(attempt), kWaits.size() - 1)];
    std::this_thread::sleep_for(std::min(wait, left));
    return 1;
}

}  // namespace halvtiv::ado
