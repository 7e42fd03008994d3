#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>

#include <halvtiv/ado.hpp>

#include "ado/cancel_switch.hpp"
#include "ado/provider.hpp"

namespace halvtiv::ado {

struct Connection::Impl {
    /// The open session. Raises -2146824584 when there is none.
    Session& Require();

    /// A use of the connection from outside, which `Cancel` stops.
    CancelSwitch::Call BeginCall() const noexcept { return CancelSwitch::Call(*cancel); }

    bool IsOpen() const { return session && session->IsAlive(); }
    /// Whether a transaction is open, and none of the SQL's statements has put it in the place of that of
    /// `BeginTrans`.
    bool InTransaction() const {
        return session->InTransaction() && (level == 0 || session->EndedTransactions() == endedBefore);
    }

    std::shared_ptr<Session> session;
    /// Stops what runs on the session.
    std::shared_ptr<CancelSwitch> cancel = std::make_shared<CancelSwitch>();
    std::int32_t connectionTimeout = 15;
    std::int32_t commandTimeout = 30;
    /// Transactions that `BeginTrans` has begun and nothing has ended.
    std::int32_t level = 0;
    /// Whether level 1 is a savepoint in a transaction that the caller's own SQL has begun.
    bool outermostIsSavepoint = false;
    /// The session's count of ended transactions when level 1 began.
    std::uint64_t endedBefore = 0;
};

/// A connection as this library's own code sees it.
struct ConnectionInside {
    /// Gives a connection that is yet to be opened the switch by which other threads stop what runs on it.
    static void UseCancelSwitch(Connection& connection, std::shared_ptr<CancelSwitch> cancel) {
        connection.impl_->cancel = std::move(cancel);
    }
    /// Null where it is not open.
    static std::shared_ptr<Session> SessionOf(const Connection& connection) {
        return connection.impl_->session;
    }
    static const std::shared_ptr<CancelSwitch>& CancelSwitchOf(const Connection& connection) {
        return connection.impl_->cancel;
    }
    /// The database's name; "" where it is not open.
    static std::string_view DatabaseName(const Connection& connection) {
        return connection.impl_->session ? connection.impl_->session->DatabaseName() : std::string_view();
    }
    /// Whether the database has a transaction open on it, whoever began it; that of `BeginTrans` if there was
    /// one.
    static bool InTransaction(const Connection& connection) {
        return connection.impl_->IsOpen() && connection.impl_->InTransaction();
    }

    /// Whether the innermost `BeginTrans` has begun the database's transaction itself.
    static bool IsOutermostTransaction(const Connection& connection) {
        return connection.impl_->level == 1 && !connection.impl_->outermostIsSavepoint;
    }

    /// Does something whose failure the caller survives. Where a failed statement would spoil the open
    /// transaction, it is undone up to here.
    template <typename Action>
    static void LeavingTransaction(Connection& connection, Action&& action) {
        constexpr std::int32_t kLevel = 0;  // below those that a connection counts
        Session& session = connection.impl_->Require();
        if (!session.FailureSpoilsTransaction() || !session.InTransaction()) return action();
        session.SetSavepoint(kLevel);
        try {
            action();
        } catch (...) {
            if (session.InTransaction()) session.RollbackToSavepoint(kLevel);
            throw;
        }
        session.ReleaseSavepoint(kLevel);
    }
};

}  // namespace halvtiv::ado
