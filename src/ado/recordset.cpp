#include <halvtiv/ado.hpp>

#include "ado/connection_impl.hpp"
#include "ado/errors.hpp"
#include "ado/recordset_state.hpp"
#include "ado/table_name.hpp"

namespace halvtiv::ado {
namespace {

RecordsetState& Require(const std::shared_ptr<RecordsetState>& state) {
    if (!state) RaiseAdoError(AdoError::ObjectClosed);
    state->RequireOpen();
    return *state;
}

}  // namespace

Recordset::Recordset() = default;
Recordset::~Recordset() = default;

void Recordset::Open(std::string_view source, const ConnectionPtr& activeConnection, std::int32_t cursorType,
                     std::int32_t lockType, std::int32_t /*options*/) {
    if (State() == adStateOpen) RaiseAdoError(AdoError::ObjectOpen);
    if (!activeConnection || !activeConnection->impl_->session) RaiseAdoError(AdoError::InvalidConnection);
    const auto& session = activeConnection->impl_->session;
    if (!session->IsAlive()) session->RaiseUnusable();
    state_.reset();  // runs what an earlier batch has left
    const auto purpose = lockType <= adLockReadOnly ? Purpose::Read : Purpose::Change;
    auto state = std::make_shared<RecordsetState>(session, session->Prepare(CommandTextOf(source), purpose),
                                                  cursorType, lockType);
    state->RunNext();
    state_ = std::move(state);
}

void Recordset::Close() {
    if (!state_) RaiseAdoError(AdoError::ObjectClosed);
    state_->Close();
}

std::int32_t Recordset::State() {
    return state_ && state_->IsOpen() ? adStateOpen : adStateClosed;
}

void Recordset::RequireOtherFile(std::string_view path) const {
    if (state_) state_->RequireOtherFile(path);
}

bool Recordset::IsBOF() {
    return Require(state_).HasNoRows();
}

bool Recordset::IsEOF() {
    return Require(state_).AtEnd();
}

void Recordset::MoveFirst() {
    Require(state_).MoveFirst();
}

void Recordset::MoveNext() {
    Require(state_).MoveNext();
}

void Recordset::AddNew() {
    Require(state_).AddNew();
}

void Recordset::Update() {
    Require(state_).Update();
}

void Recordset::Delete() {
    Require(state_).Delete();
}

RecordsetPtr Recordset::NextRecordset() {
    if (!state_) return nullptr;
    auto nextState = state_->TakeNext();
    if (!nextState) return nullptr;
    auto next = std::make_shared<Recordset>();
    next->state_ = std::move(nextState);
    return next;
}

ado::Fields& Recordset::Fields() {
    return Require(state_).FieldList();
}

}  // namespace halvtiv::ado
