#include "ado/sqlite/sqlite_session.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <thread>
#include <utility>

#include "ado/errors.hpp"
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

std::string SavepointName(std::int32_t level) {
    return "halvtiv_" + std::to_string(level);
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
}

SqliteSession::~SqliteSession() {
    Close();
}

std::unique_ptr<Batch> SqliteSession::Prepare(std::string commandText, Purpose purpose) {
    if (!database_) RaiseAdoError(AdoError::InvalidConnection);
    if (commandText.find('\0') != std::string::npos) {
        throw MakeProviderError(AdoError::SqlError, kNulInCommand, kSqliteName);
    }
    return std::make_unique<SqliteBatch>(shared_from_this(), std::move(commandText), purpose);
}

void SqliteSession::Close() {
    if (!database_) return;
    ReleaseReaders();
    for (auto* statement : inUse_) statement->Drop();
    inUse_.clear();
    cache_.Clear();
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
    return sqlite3_get_autocommit(database_.get()) == 0;
}

void SqliteSession::Begin() {
    Run("BEGIN IMMEDIATE");
}

void SqliteSession::Commit() {
    try {
        Run("COMMIT");
    } catch (...) {
        if (InTransaction()) Rollback();
        throw;
    }
}

void SqliteSession::Rollback() {
    RunToUndo("ROLLBACK");
}

void SqliteSession::SetSavepoint(std::int32_t level) {
    Run("SAVEPOINT " + SavepointName(level));
}

void SqliteSession::ReleaseSavepoint(std::int32_t level) {
    Run("RELEASE " + SavepointName(level));
}

void SqliteSession::RollbackToSavepoint(std::int32_t level) {
    RunToUndo("ROLLBACK TO " + SavepointName(level));
    RunToUndo("RELEASE " + SavepointName(level));
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
    if (!database_) RaiseAdoError(AdoError::InvalidConnection);
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
    sqlite3_stmt* planned = nullptr;
    sqlite3_prepare_v3(database_.get(), plan->text.c_str(), -1, isKept ? SQLITE_PREPARE_PERSISTENT : 0U,
                       &planned, nullptr);
    // A query that does not take the other select list runs as it is.
    if (planned) {
        SqliteStatementHandle owned(planned);
        auto guard = PrepareGuard(*plan);
        statement->Follow(*std::move(plan), std::move(owned), std::move(guard));
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
    sqlite3_stmt* prepared = nullptr;
    sqlite3_prepare_v3(database_.get(), text.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &prepared, nullptr);
    return SqliteStatementHandle(prepared);
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

SqliteStatementHandle SqliteSession::PrepareHandle(std::string_view text, bool isKept, const char** tail) {
    sqlite3_stmt* prepared = nullptr;
    const int status = sqlite3_prepare_v3(database_.get(), text.data(), static_cast<int>(text.size() + 1),
                                          isKept ? SQLITE_PREPARE_PERSISTENT : 0U, &prepared, tail);
    SqliteStatementHandle handle(prepared);
    if (status != SQLITE_OK) RaiseError(status);
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

bool SqliteSession::Step(SqliteStatement& statement) {
    if (!statement.Handle()) RaiseAdoError(AdoError::InvalidConnection);
    if (!undoing_) StopIfCancelled();
    StartClock();
    running_ = statement.Handle();
    const int status = sqlite3_step(running_);
    running_ = nullptr;
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

void SqliteSession::Run(const std::string& commandText) {
    const auto statement = Acquire(commandText, Purpose::Read);
    Step(*statement);
}

void SqliteSession::RunToUndo(const std::string& commandText) {
    const bool wasUndoing = std::exchange(undoing_, true);
    try {
        Run(commandText);
    } catch (...) {
        undoing_ = wasUndoing;
        throw;
    }
    undoing_ = wasUndoing;
}

bool SqliteSession::MustStop() noexcept {
    if (commandTimeout_.count() > 0 && Clock::now() >= deadline_) timedOut_ = true;
    return timedOut_ || (!undoing_ && cancel_->IsThrown());
}

int SqliteSession::StopWhenItMust(void* session) {
    auto& self = *static_cast<SqliteSession*>(session);
    // The database asks once more behind the end: a BEGIN or COMMIT that is done must not be said to have
    // failed.
    const bool isDone = self.running_ != nullptr && sqlite3_stmt_busy(self.running_) == 0;
    return !isDone && !self.wholeStep_ && self.MustStop() ? 1 : 0;
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
