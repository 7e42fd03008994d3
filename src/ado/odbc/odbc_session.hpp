#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ado/cancel_switch.hpp"
#include "ado/odbc/odbc_handle.hpp"
#include "ado/odbc/odbc_peer.hpp"
#include "ado/odbc/odbc_traits.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

class OdbcExecution;

inline constexpr std::string_view kAccessIsReadOnly = "Access files can only be read here.";

/// A connection through an ODBC driver.
class OdbcSession final : public Session, public std::enable_shared_from_this<OdbcSession> {
public:
    /// The connection is open.
    OdbcSession(OdbcHandle environment, OdbcHandle connection, OdbcTraits traits,
                std::shared_ptr<CancelSwitch> cancel);
    ~OdbcSession() override;
    OdbcSession(const OdbcSession&) = delete;
    OdbcSession& operator=(const OdbcSession&) = delete;

    std::unique_ptr<Batch> Prepare(std::string commandText, Purpose purpose) override;
    RowChangeResult Change(const RowChange& change) override;
    std::string_view DatabaseName() const override;
    std::vector<std::string> Files() const override { return files_; }
    bool IsAlive() override;
    bool IsClosed() const noexcept override { return !connection_; }
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

    const OdbcTraits& Traits() const noexcept { return traits_; }
    /// The first statement of a connection: texts, names, keys and values that do not fit are what they are
    /// in standard SQL. A backslash in a text is one, since values are put into statements with their quotes
    /// doubled, and must not end their text otherwise.
    void AskForStandardSql();
    /// The files that the driver has opened.
    void SetFiles(std::vector<std::string> files) noexcept { files_ = std::move(files); }
    /// What is known of the server's end; the session goes through it where its driver cannot help.
    void UsePeer(std::unique_ptr<OdbcPeer> peer) noexcept { peer_ = std::move(peer); }
    /// Whether the driver's handles may still be used.
    bool IsUsable() const noexcept { return connection_ && !isLost_; }
    SQLHDBC Connection() const noexcept { return connection_.Get(); }
    /// A statement handle with the command time-out. Raises when the session cannot be used.
    OdbcHandle NewStatement();
    SQLRETURN PrepareText(SQLHSTMT statement, std::string_view text);
    /// Raises for a prepared statement with bind markers, which nothing binds.
    void RefuseMarkers(SQLHSTMT prepared);
    /// Refuses a text with bind markers before it runs.
    SQLRETURN ExecuteText(SQLHSTMT statement, std::string_view text);
    /// Makes a call that waits for the database, so that it can be cancelled.
    template <typename Call>
    SQLRETURN Wait(SQLHSTMT statement, Call&& call) {
        WaitingCall waiting(*this, statement);
        const CancelSwitch::Target target(*cancel_, waiting);
        StopIfCancelled();
        return call();
    }
    /// Raises -2147217842 when the running work has been cancelled.
    void StopIfCancelled() {
        if (!undoing_ && cancel_->IsThrown()) RaiseCancelled();
    }
    /// Raises the error of a call on a statement that has failed.
    void Check(SQLRETURN status, SQLHSTMT statement) {
        if (!SQL_SUCCEEDED(status)) Raise(SQL_HANDLE_STMT, statement);
    }
    [[noreturn]] void Raise(SQLSMALLINT handleType, SQLHANDLE handle);
    /// Before a statement runs: others that hold the connection give way.
    void MakeRoom(const OdbcExecution* except);
    /// Before a statement runs: raises where it would commit the open transaction by beginning another, or
    /// where the driver would not come back from it, or take texts for others afterwards.
    void RefuseHarm(std::string_view text);
    /// After a statement has run, which may have begun or ended a transaction.
    void HasRun(std::string_view text);
    void Add(OdbcExecution& execution) { executions_.push_back(&execution); }
    void Remove(OdbcExecution& execution) noexcept { std::erase(executions_, &execution); }

private:
    void RefuseMarkers(std::string_view text);
    class WaitingCall final : public CancelSwitch::Waiting {
    public:
        WaitingCall(OdbcSession& session, SQLHSTMT statement)
            : session_(session), statement_(statement), isUndoing_(session.undoing_) {}
        bool AskToStop() noexcept override;
        bool CanCut() const noexcept override;
        void Cut() noexcept override;

    private:
        OdbcSession& session_;
        SQLHSTMT statement_;
        bool isUndoing_;
    };

    struct PreparedChange {
        std::string text;
        OdbcHandle statement;
    };

    void SetOthersAside(const OdbcExecution* except);
    SQLRETURN PrepareForMariaDb(SQLHSTMT statement, std::string_view text);
    /// MariaDB would commit the open transaction to begin another.
    void RefuseSecondBegin(std::string_view text);
    void TellTimeout();
    [[noreturn]] void RaiseCancelled();
    void RequireOpen() const;
    /// A statement of a change, prepared at its first use.
    SQLHSTMT PreparedStatement(const std::string& text);
    std::optional<std::int64_t> NewKeyAfter(const RowChange& change);
    void SetAutoCommit(bool isOn);
    /// Whether a server that ends transactions by itself still has this one. Raises where it does not tell.
    bool HasServerTransaction();
    /// Whether SQLite has no transaction open: some failures end it.
    bool CanBegin();
    /// Ends the transaction at the database; what is open gives way first where it would not outlive that.
    void EndTransaction(SQLSMALLINT how);
    /// The database has rolled back by itself.
    void ForgetTransaction() noexcept;
    void Run(const std::string& commandText);
    /// Runs what cancelling has no hold on.
    void RunToEnd(const std::string& commandText);
    template <typename Action>
    void WithoutStops(Action&& action) {
        const bool wasUnstopped = std::exchange(undoing_, true);
        try {
            action();
        } catch (...) {
            undoing_ = wasUnstopped;
            throw;
        }
        undoing_ = wasUnstopped;
    }

    OdbcHandle environment_;
    OdbcHandle connection_;
    // SQLite's driver stops all that runs on the connection, and frees at once what the named statement
    // holds, in the midst of its running in another thread: this one holds nothing. None for other drivers.
    OdbcHandle idleStatement_;
    OdbcTraits traits_;
    std::shared_ptr<CancelSwitch> cancel_;
    std::unique_ptr<OdbcPeer> peer_;          // null where there is nothing beside the driver
    std::vector<OdbcExecution*> executions_;  // owned by their batches and cursors
    std::vector<std::string> files_;
    std::list<PreparedChange> changes_;  // the last used first
    bool isLost_ = false;
    bool inTransaction_ = false;
    bool hasFailed_ = false;  // a statement has, since the transaction began or was last asked for
    bool undoing_ = false;    // cancelling has no hold on what undoes work
    std::int32_t commandTimeout_ = 0;
    std::int32_t serverTimeout_ = 0;  // the one that the server knows of
};

}  // namespace halvtiv::ado
