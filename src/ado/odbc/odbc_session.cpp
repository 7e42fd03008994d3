#include "ado/odbc/odbc_session.hpp"

#include <algorithm>

#include "ado/errors.hpp"
#include "ado/odbc/odbc_batch.hpp"
#include "ado/odbc/odbc_diagnostics.hpp"
#include "ado/odbc/odbc_execution.hpp"
#include "ado/odbc/odbc_script.hpp"
#include "ado/odbc/odbc_text.hpp"
#include "ado/sql_scanner.hpp"

namespace halvtiv::ado {
namespace {

std::string SavepointName(std::int32_t level) {
    return "halvtiv_" + std::to_string(level);
}

// States by which databases tell that a statement was stopped, whoever wanted it.
bool IsStopped(const OdbcDiagnostic& diagnostic) {
    return diagnostic.state.starts_with("HY") || diagnostic.state == "70100" || diagnostic.state == "57014";
}

bool BeginsTransaction(const SqlToken& first, const SqlToken& second) {
    return (first.IsWord("begin") && !second.IsWord("not")) ||
           (first.IsWord("start") && second.IsWord("transaction"));
}

// SET in one of the ways by which texts would travel otherwise than the driver takes them to.
bool SetsEncoding(std::string_view text) {
    SqlScanner words(text);
    if (!words.Next().IsWord("set")) return false;
    const auto second = words.Next();
    if (second.IsWord("charset") || second.IsWord("character")) return true;
    for (auto word = second; word.kind != SqlToken::Kind::End; word = words.Next()) {
        if (word.IsWord("global")) return false;
        if (word.IsWord("character_set_client") || word.IsWord("character_set_results")) return true;
    }
    return false;
}

bool HasRolledBack(const OdbcDiagnostic& diagnostic) {
    return diagnostic.state.starts_with("40");
}

}  // namespace

OdbcSession::OdbcSession(OdbcHandle environment, OdbcHandle connection, OdbcTraits traits,
                         std::shared_ptr<CancelSwitch> cancel)
    : environment_(std::move(environment)),
      connection_(std::move(connection)),
      traits_(std::move(traits)),
      cancel_(std::move(cancel)) {
    if (traits_.dialect == OdbcDialect::Sqlite) {
        idleStatement_ = OdbcHandle::TryMake(SQL_HANDLE_STMT, connection_.Get());
    }
}

OdbcSession::~OdbcSession() {
    Close();
}

void OdbcSession::RequireOpen() const {
    if (!IsUsable()) RaiseUnusable();
}

bool OdbcSession::IsAlive() {
    if (!IsUsable()) return false;
    const bool isFree = std::none_of(executions_.begin(), executions_.end(),
                                     [](const auto* execution) { return execution->IsRunning(); });
    if (isFree && peer_ && peer_->HasGone()) {
        isLost_ = true;
        ForgetTransaction();
    }
    return !isLost_;
}

std::unique_ptr<Batch> OdbcSession::Prepare(std::string commandText, Purpose purpose) {
    RequireOpen();
    if (commandText.find('\0') != std::string::npos) {
        throw MakeProviderError(AdoError::SqlError, "The command text holds a NUL character.",
                                traits_.databaseName);
    }
    return std::make_unique<OdbcBatch>(shared_from_this(), std::move(commandText), purpose);
}

std::string_view OdbcSession::DatabaseName() const {
    switch (traits_.dialect) {
        case OdbcDialect::Sqlite:
            return "SQLite";
        case OdbcDialect::Access:
            return "Access";
        case OdbcDialect::MariaDb:
            return "MariaDB";
        case OdbcDialect::PostgreSql:
            return "PostgreSQL";
        case OdbcDialect::SqlServer:
            return "SQLServer";
        case OdbcDialect::Other:
            break;
    }
    return traits_.databaseName;
}

void OdbcSession::Close() {
    if (!connection_) return;
    for (auto* execution : executions_) execution->Drop();
    executions_.clear();
    changes_.clear();
    if (inTransaction_ && !traits_.beginsBySql) SQLEndTran(SQL_HANDLE_DBC, connection_.Get(), SQL_ROLLBACK);
    idleStatement_.Free();
    SQLDisconnect(connection_.Get());
    connection_.Free();
    peer_.reset();  // which holds a connection that its driver has left
    environment_.Free();
}

OdbcHandle OdbcSession::NewStatement() {
    RequireOpen();
    auto statement = OdbcHandle::TryMake(SQL_HANDLE_STMT, connection_.Get());
    if (!statement) Raise(SQL_HANDLE_DBC, connection_.Get());  // a driver refuses on a broken connection
    if (commandTimeout_ > 0 && traits_.dialect != OdbcDialect::MariaDb) {
        // A driver that cannot do it goes on without.
        SQLSetStmtAttr(statement.Get(), SQL_ATTR_QUERY_TIMEOUT,
                       reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(commandTimeout_)), 0);
    }
    return statement;
}

SQLRETURN OdbcSession::PrepareText(SQLHSTMT statement, std::string_view text) {
    if (!traits_.isWide) {
        std::string narrow(text);
        return SQLPrepare(statement, reinterpret_cast<SQLCHAR*>(narrow.data()), SQL_NTS);
    }
    auto wide = ToWide(text);
    return Wait(statement, [&] { return SQLPrepareW(statement, wide.data(), SQL_NTS); });
}

SQLRETURN OdbcSession::ExecuteText(SQLHSTMT statement, std::string_view text) {
    if (!traits_.isWide) {
        std::string narrow(text);
        return Wait(statement, [&] {
            return SQLExecDirect(statement, reinterpret_cast<SQLCHAR*>(narrow.data()), SQL_NTS);
        });
    }
    // Direct execution crashes in that driver where the connection breaks while the columns are described.
    if (traits_.dialect == OdbcDialect::MariaDb) {
        const bool hasBlocks = traits_.databaseName == "MariaDB";
        const auto status = hasBlocks ? PrepareForMariaDb(statement, text) : PrepareText(statement, text);
        if (!SQL_SUCCEEDED(status)) return status;
        return Wait(statement, [&] { return SQLExecute(statement); });
    }
    auto wide = ToWide(text);
    return Wait(statement, [&] { return SQLExecDirectW(statement, wide.data(), SQL_NTS); });
}

// Inside a block, rows that the server has not announced come with their columns, and EXECUTE may be
// prepared.
SQLRETURN OdbcSession::PrepareForMariaDb(SQLHSTMT statement, std::string_view text) {
    const bool isExecute = SqlScanner(text).Next().IsWord("execute");
    if (!isExecute) {
        const auto status = PrepareText(statement, text);
        SQLSMALLINT columns = 0;
        if (!SQL_SUCCEEDED(status) || !SQL_SUCCEEDED(SQLNumResultCols(statement, &columns)) || columns > 0 ||
            !MayHideItsRows(text)) {
            return status;
        }
    }
    return PrepareText(statement, "BEGIN NOT ATOMIC " + std::string(text) + "\n; END");
}

void OdbcSession::AskForStandardSql() {
    const bool isMariaDb = traits_.dialect == OdbcDialect::MariaDb;
    if (!isMariaDb && traits_.dialect != OdbcDialect::PostgreSql) return;
    // There, "||" may mean OR, "a" a text, a 0 for a key the next number; and what does not fit may be cut.
    // Moments are in UTC, as elsewhere, where no hour comes twice or never.
    constexpr const char* kMariaDb =
        "SET SESSION sql_mode = CONCAT(@@sql_mode, ',NO_BACKSLASH_ESCAPES,ANSI_QUOTES,PIPES_AS_CONCAT,"
        "NO_AUTO_VALUE_ON_ZERO,STRICT_ALL_TABLES'), group_concat_max_len = 1073741824, time_zone = '+00:00'";
    constexpr const char* kPostgreSql = "SET standard_conforming_strings = on; SET TimeZone = 'UTC'";
    const auto statement = NewStatement();
    Check(ExecuteText(statement.Get(), isMariaDb ? kMariaDb : kPostgreSql), statement.Get());
}

void OdbcSession::MakeRoom(const OdbcExecution* except) {
    if (traits_.hasOneResult) SetOthersAside(except);
    if (traits_.dialect == OdbcDialect::MariaDb && serverTimeout_ != commandTimeout_) TellTimeout();
}

// That driver takes the time-out and does nothing with it; the server can watch the time itself.
void OdbcSession::TellTimeout() {
    serverTimeout_ = commandTimeout_;
    const auto statement = NewStatement();
    ExecuteText(statement.Get(), "SET SESSION max_statement_time=" + std::to_string(commandTimeout_));
}

void OdbcSession::SetOthersAside(const OdbcExecution* except) {
    const auto open = executions_;  // they leave the list as they end
    for (auto* execution : open) {
        if (execution != except) execution->SetAside();
    }
}

bool OdbcSession::WaitingCall::AskToStop() noexcept {
    if (isUndoing_) return true;  // it is waited for, and cut off when it takes too long
    if (session_.peer_) return session_.peer_->KillStatement();
    return SQL_SUCCEEDED(SQLCancel(session_.idleStatement_ ? session_.idleStatement_.Get() : statement_));
}

bool OdbcSession::WaitingCall::CanCut() const noexcept {
    return session_.peer_ && session_.peer_->CanCut();
}

void OdbcSession::WaitingCall::Cut() noexcept {
    session_.peer_->Cut();
}

void OdbcSession::RaiseCancelled() {
    cancel_->Take();
    throw MakeProviderError(AdoError::Cancelled, MakeAdoError(AdoError::Cancelled).Description,
                            traits_.databaseName);
}

void OdbcSession::Raise(SQLSMALLINT handleType, SQLHANDLE handle) {
    if (!connection_) RaiseAdoError(AdoError::InvalidConnection);
    hasFailed_ = true;
    const auto diagnostics = ReadOdbcDiagnostics(handleType, handle, traits_.isWide);
    const auto any = [&](auto is) { return std::any_of(diagnostics.begin(), diagnostics.end(), is); };
    const bool isStopped = any(IsStopped);
    auto error = MakeOdbcError(diagnostics, traits_.databaseName);
    if (isStopped && !undoing_ && cancel_->IsThrown()) RaiseCancelled();
    if (any(IsConnectionLost)) {
        isLost_ = true;
        if (!undoing_ && cancel_->IsThrown()) {  // it was cut off
            ForgetTransaction();
            RaiseCancelled();
        }
    } else if (error.Number == static_cast<std::int32_t>(AdoError::Unspecified)) {
        SQLUINTEGER isDead = SQL_CD_FALSE;
        const auto status =
            SQLGetConnectAttr(connection_.Get(), SQL_ATTR_CONNECTION_DEAD, &isDead, sizeof isDead, nullptr);
        isLost_ = SQL_SUCCEEDED(status) && isDead == SQL_CD_TRUE;
        // Stopped by nobody else: the time was up.
        const bool isTimeUp = isStopped && commandTimeout_ > 0 && any([](const auto& entry) {
                                  return entry.state == "70100" || entry.state == "57014";
                              });
        if (isTimeUp) error.Number = static_cast<std::int32_t>(AdoError::CommandTimeout);
    }
    if (isLost_) {
        error.Number = static_cast<std::int32_t>(AdoError::Unspecified);
        if (peer_) peer_->Cut();
    }
    if (isLost_ || any(HasRolledBack)) ForgetTransaction();
    throw error;
}

void OdbcSession::SetCommandTimeout(std::int32_t seconds) {
    commandTimeout_ = std::max(seconds, 0);
    changes_.clear();  // they keep the time-out of their making
}

void OdbcSession::SetAutoCommit(bool isOn) {
    const auto value = static_cast<SQLULEN>(isOn ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF);
    const auto status = SQLSetConnectAttr(connection_.Get(), SQL_ATTR_AUTOCOMMIT,
                                          reinterpret_cast<SQLPOINTER>(value), SQL_IS_UINTEGER);
    if (!SQL_SUCCEEDED(status)) Raise(SQL_HANDLE_DBC, connection_.Get());
}

void OdbcSession::Begin() {
    RequireOpen();
    StopIfCancelled();
    if (!traits_.hasTransactions) {
        throw MakeProviderError(
            AdoError::NotSupported,
            traits_.dialect == OdbcDialect::Access ? kAccessIsReadOnly : "The database has no transactions.",
            traits_.databaseName);
    }
    if (traits_.beginsBySql) {
        Run(traits_.dialect == OdbcDialect::Sqlite ? "BEGIN IMMEDIATE" : "START TRANSACTION");
    } else {
        MakeRoom(nullptr);
        SetAutoCommit(false);
    }
    inTransaction_ = true;
    hasFailed_ = false;
}

bool OdbcSession::InTransaction() {
    if (!inTransaction_) return false;
    try {
        if (traits_.dialect == OdbcDialect::MariaDb) {
            inTransaction_ = HasServerTransaction();
        } else if (traits_.dialect == OdbcDialect::Sqlite && std::exchange(hasFailed_, false)) {
            inTransaction_ = !CanBegin();
        }
    } catch (const ErrorInfo& error) {
        if (IsCancelled(error)) throw;
        // MySQL does not tell: what is known here has to do. With a lost connection, it has been forgotten.
    }
    return inTransaction_;
}

bool OdbcSession::HasServerTransaction() {
    MakeRoom(nullptr);
    const auto statement = NewStatement();
    SQLINTEGER is = 0;
    SQLLEN length = SQL_NULL_DATA;
    Check(ExecuteText(statement.Get(), "SELECT @@in_transaction"), statement.Get());
    Check(SQLFetch(statement.Get()), statement.Get());
    Check(SQLGetData(statement.Get(), 1, SQL_C_LONG, &is, sizeof is, &length), statement.Get());
    return is != 0;
}

bool OdbcSession::CanBegin() {
    bool can = false;
    WithoutStops([&] {
        const auto statement = NewStatement();
        can = SQL_SUCCEEDED(ExecuteText(statement.Get(), "BEGIN"));
        if (can) ExecuteText(NewStatement().Get(), "ROLLBACK");
    });
    return can;
}

void OdbcSession::RefuseHarm(std::string_view text) {
    if (traits_.dialect == OdbcDialect::PostgreSql) {
        // Its driver waits without end for somebody who takes or gives the data.
        if (SqlScanner(text, SqlDialect::Postgresql).Next().IsWord("copy")) {
            throw MakeProviderError(AdoError::SqlError, kNoCopy, traits_.databaseName);
        }
        return;
    }
    if (traits_.dialect != OdbcDialect::MariaDb) return;
    if (SetsEncoding(text)) {
        throw MakeProviderError(AdoError::SqlError,
                                "The texts of the connection are in UTF-8, which cannot be changed.",
                                traits_.databaseName);
    }
    if (!inTransaction_) return;
    SqlScanner words(text);
    const auto first = words.Next();
    if (!BeginsTransaction(first, words.Next()) || !InTransaction()) return;
    throw MakeProviderError(AdoError::SqlError,
                            "A transaction is open, which the server would commit to begin another one.",
                            traits_.databaseName);
}

// The driver manager's transactions are none of the SQL's: what the SQL does to them is read from its words.
void OdbcSession::HasRun(std::string_view text) {
    if (!traits_.splitsScripts) return;
    SqlScanner words(text);
    const auto first = words.Next();
    const auto second = words.Next();
    // Prepared for other columns, they would take values of those.
    if (first.IsWord("create") || first.IsWord("alter") || first.IsWord("drop")) changes_.clear();
    if (BeginsTransaction(first, second)) {
        inTransaction_ = true;
        return;
    }
    if (!inTransaction_ || !(first.IsWord("commit") || first.IsWord("rollback") || first.IsWord("end") ||
                             first.IsWord("abort"))) {
        return;
    }
    auto before = first;
    for (auto word = second; word.kind != SqlToken::Kind::End; word = words.Next()) {
        if (word.IsWord("to") || (word.IsWord("chain") && !before.IsWord("no"))) return;
        before = word;
    }
    inTransaction_ = false;
    if (!traits_.beginsBySql) SetAutoCommit(true);
}

void OdbcSession::EndTransaction(SQLSMALLINT how) {
    RequireOpen();
    MakeRoom(nullptr);
    if (!traits_.keepsResultsAtEnd) SetOthersAside(nullptr);
    // What has been sent must be known to be done or not.
    if (traits_.beginsBySql) return RunToEnd(how == SQL_COMMIT ? "COMMIT" : "ROLLBACK");
    const auto status = SQLEndTran(SQL_HANDLE_DBC, connection_.Get(), how);
    if (!SQL_SUCCEEDED(status)) Raise(SQL_HANDLE_DBC, connection_.Get());
    inTransaction_ = false;
    SetAutoCommit(true);
}

void OdbcSession::ForgetTransaction() noexcept {
    if (!std::exchange(inTransaction_, false) || isLost_) return;
    if (traits_.beginsBySql) {
        try {
            RunToEnd("ROLLBACK");
        } catch (...) {  // NOLINT(bugprone-empty-catch): there is none any more
        }
        return;
    }
    SQLEndTran(SQL_HANDLE_DBC, connection_.Get(), SQL_ROLLBACK);
    SQLSetConnectAttr(connection_.Get(), SQL_ATTR_AUTOCOMMIT,
                      reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(SQL_AUTOCOMMIT_ON)), SQL_IS_UINTEGER);
}

void OdbcSession::Commit() {
    try {
        StopIfCancelled();
        EndTransaction(SQL_COMMIT);
    } catch (...) {
        ForgetTransaction();
        throw;
    }
}

void OdbcSession::Rollback() {
    try {
        WithoutStops([&] { EndTransaction(SQL_ROLLBACK); });
    } catch (...) {
        ForgetTransaction();
        throw;
    }
}

void OdbcSession::SetSavepoint(std::int32_t level) {
    const bool isSqlServer = traits_.dialect == OdbcDialect::SqlServer;
    Run((isSqlServer ? "SAVE TRANSACTION " : "SAVEPOINT ") + SavepointName(level));
}

void OdbcSession::ReleaseSavepoint(std::int32_t level) {
    if (traits_.dialect == OdbcDialect::SqlServer) return;  // goes with its transaction
    Run("RELEASE SAVEPOINT " + SavepointName(level));
}

void OdbcSession::RollbackToSavepoint(std::int32_t level) {
    const bool isSqlServer = traits_.dialect == OdbcDialect::SqlServer;
    RunToEnd((isSqlServer ? "ROLLBACK TRANSACTION " : "ROLLBACK TO SAVEPOINT ") + SavepointName(level));
    if (!isSqlServer) RunToEnd("RELEASE SAVEPOINT " + SavepointName(level));
}

void OdbcSession::Run(const std::string& commandText) {
    const auto execution = std::make_shared<OdbcExecution>(shared_from_this(), commandText);
    execution->RunNext();
}

void OdbcSession::RunToEnd(const std::string& commandText) {
    WithoutStops([&] { Run(commandText); });
}

}  // namespace halvtiv::ado
