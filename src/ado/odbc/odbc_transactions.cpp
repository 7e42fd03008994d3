#include <string>
#include <utility>

#include "ado/errors.hpp"
#include "ado/odbc/odbc_diagnostics.hpp"
#include "ado/odbc/odbc_execution.hpp"
#include "ado/odbc/odbc_session.hpp"
#include "ado/sql_scanner.hpp"

// The transactions of a session.

namespace halvtiv::ado {
namespace {

std::string SavepointName(std::int32_t level) {
    return "halvtiv_" + std::to_string(level);
}

bool BeginsTransaction(const SqlToken& first, const SqlToken& second) {
    return (first.IsWord("begin") && !second.IsWord("not")) ||
           (first.IsWord("start") && second.IsWord("transaction"));
}

}  // namespace

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

void OdbcSession::RefuseSecondBegin(std::string_view text) {
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
    const auto end = inTransaction_ ? TransactionEndOf(text) : TransactionEnd::None;
    if (end == TransactionEnd::None) return;
    CountEndedTransaction();
    if (end == TransactionEnd::BeginsAnother) return;
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

}  // namespace halvtiv::ado
