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

// States by which databases tell that a statement was stopped, whoever wanted it.
bool IsStopped(const OdbcDiagnostic& diagnostic) {
    return diagnostic.state.starts_with("HY") || diagnostic.state == "70100" || diagnostic.state == "57014";
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
        throw MakeProviderError(AdoError::SqlError, kNulInCommand, traits_.databaseName);
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

// The driver tells a marker from a question mark in a text. Some drivers crash on an unbound one, some send
// NULL.
void OdbcSession::RefuseMarkers(std::string_view text) {
    if (text.find('?') == std::string_view::npos) return;
    const auto probe = NewStatement();
    if (SQL_SUCCEEDED(PrepareText(probe.Get(), text))) RefuseMarkers(probe.Get());
}

void OdbcSession::RefuseMarkers(SQLHSTMT prepared) {
    SQLSMALLINT markers = 0;
    if (!SQL_SUCCEEDED(SQLNumParams(prepared, &markers)) || markers == 0) return;
    throw MakeProviderError(AdoError::SqlError, UnboundMarker("?"), traits_.databaseName);
}

SQLRETURN OdbcSession::ExecuteText(SQLHSTMT statement, std::string_view text) {
    RefuseMarkers(text);
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
    RefuseSecondBegin(text);
}

void OdbcSession::Run(const std::string& commandText) {
    const auto execution = std::make_shared<OdbcExecution>(shared_from_this(), commandText);
    execution->RunNext();
}

void OdbcSession::RunToEnd(const std::string& commandText) {
    WithoutStops([&] { Run(commandText); });
}

}  // namespace halvtiv::ado
