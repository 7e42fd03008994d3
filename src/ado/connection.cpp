#include <string>
#include <utility>

#include <halvtiv/ado.hpp>

#include "ado/connection_impl.hpp"
#include "ado/errors.hpp"
#include "ado/recordset_state.hpp"

namespace halvtiv::ado {

Session& Connection::Impl::Require() {
    if (!session) RaiseAdoError(AdoError::ObjectClosed);
    return *session;
}

Connection::Connection() : impl_(std::make_shared<Impl>()) {}

Connection::~Connection() {
    try {
        if (impl_->session) Close();
    } catch (...) {
        // Nobody is left to hear of it.
    }
}

void Connection::Open(std::string_view connectionString, std::string_view userID, std::string_view password,
                      std::int32_t /*options*/) {
    if (impl_->IsOpen()) RaiseAdoError(AdoError::ObjectOpen);
    if (impl_->session) Close();  // what the database has dropped
    ConnectionParameters parameters(connectionString);
    if (!userID.empty()) parameters.SetDefault("User ID", userID);
    if (!password.empty()) parameters.SetDefault("Password", password);
    const auto open = FindProvider(parameters);
    const auto call = impl_->BeginCall();
    impl_->session = open(parameters, impl_->connectionTimeout, impl_->cancel);
    impl_->session->SetCommandTimeout(impl_->commandTimeout);
}

void Connection::Close() {
    impl_->Require();
    impl_->level = 0;
    std::exchange(impl_->session, nullptr)->Close();
}

std::int32_t Connection::State() {
    return impl_->IsOpen() ? adStateOpen : adStateClosed;
}

std::string Connection::DatabaseName() const {
    return std::string(ConnectionInside::DatabaseName(*this));
}

void Connection::RequireOtherFile(std::string_view path) const {
    if (impl_->session) impl_->session->RequireOtherFile(path);
}

std::int32_t Connection::ConnectionTimeout() const {
    return impl_->connectionTimeout;
}

void Connection::ConnectionTimeout(std::int32_t seconds) {
    impl_->connectionTimeout = seconds;
}

std::int32_t Connection::CommandTimeout() const {
    return impl_->commandTimeout;
}

void Connection::CommandTimeout(std::int32_t seconds) {
    impl_->commandTimeout = seconds;
    if (impl_->session) impl_->session->SetCommandTimeout(seconds);
}

RecordsetPtr Connection::Execute(std::string_view commandText, std::int32_t* recordsAffected,
                                 std::int32_t /*options*/) {
    const auto call = impl_->BeginCall();
    auto batch = impl_->Require().Prepare(std::string(commandText), Purpose::Read);
    auto recordset = std::make_shared<Recordset>();
    recordset->state_ = std::make_shared<RecordsetState>(impl_->session, impl_->cancel, std::move(batch),
                                                         adOpenForwardOnly, adLockReadOnly);
    if (recordsAffected) *recordsAffected = -1;
    recordset->state_->RunNext(recordsAffected);
    return recordset;
}

namespace {

// A level that could not be committed must not come in with the one around it.
void ReleaseOrUndo(Session& session, std::int32_t level) {
    try {
        session.ReleaseSavepoint(level);
    } catch (...) {
        try {
            session.RollbackToSavepoint(level);
        } catch (...) {
            // What was undone stays undone; the savepoint goes with the outermost transaction.
        }
        throw;
    }
}

}  // namespace

std::int32_t Connection::BeginTrans() {
    const auto call = impl_->BeginCall();
    auto& session = impl_->Require();
    // The levels of a transaction that the database or a statement has ended are gone with it.
    if (!impl_->InTransaction()) impl_->level = 0;
    const bool inTransaction = impl_->level > 0 || session.InTransaction();
    if (impl_->level == 0) {
        impl_->outermostIsSavepoint = inTransaction;
        impl_->endedBefore = session.EndedTransactions();
    }
    if (inTransaction) {
        session.SetSavepoint(impl_->level + 1);
    } else {
        session.Begin();
    }
    return ++impl_->level;
}

// Ends the level in any case: whoever gets the error has nothing left to end.
void Connection::CommitTrans() {
    const auto call = impl_->BeginCall();
    auto& session = impl_->Require();
    if (impl_->level == 0) RaiseAdoError(AdoError::NoTransaction);
    bool isThere = false;
    try {
        isThere = impl_->InTransaction();
    } catch (...) {
        RollbackTrans();  // cancelled: as any commit that fails
        throw;
    }
    if (!isThere) {
        impl_->level = 0;
        if (!session.IsAlive()) session.RaiseUnusable();  // which is why the transaction is gone
        // What a statement has begun in its place.
        if (!impl_->outermostIsSavepoint && session.InTransaction()) session.Rollback();
        RaiseAdoError(AdoError::NoTransaction);
    }
    const auto level = impl_->level--;
    if (level == 1 && !impl_->outermostIsSavepoint) {
        session.Commit();
    } else {
        ReleaseOrUndo(session, level);
    }
}

void Connection::RollbackTrans() {
    const auto call = impl_->BeginCall();
    auto& session = impl_->Require();
    if (impl_->level == 0) RaiseAdoError(AdoError::NoTransaction);
    const auto level = impl_->level--;
    const bool isTheSame = session.EndedTransactions() == impl_->endedBefore;
    try {
        if (!session.InTransaction()) return;  // the database has rolled it back already
    } catch (const ErrorInfo& error) {
        if (!IsCancelled(error)) throw;  // undoing goes on all the same
    }
    if (level == 1 && !impl_->outermostIsSavepoint) {
        session.Rollback();
    } else if (isTheSame) {
        session.RollbackToSavepoint(level);
    }
}

}  // namespace halvtiv::ado
