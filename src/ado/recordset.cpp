#include <halvtiv/ado.hpp>

#include "ado/errors.hpp"
#include "ado/recordset_state.hpp"

namespace halvtiv::ado {
namespace {

/// A member's call on an open recordset.
class OpenCall {
public:
    explicit OpenCall(const std::shared_ptr<RecordsetState>& state)
        : state_(RequireOpen(state)), call_(state_.BeginCall()) {}
    RecordsetState* operator->() const noexcept { return &state_; }

private:
    static RecordsetState& RequireOpen(const std::shared_ptr<RecordsetState>& state) {
        if (!state) RaiseAdoError(AdoError::ObjectClosed);
        state->RequireOpen();
        return *state;
    }

    RecordsetState& state_;
    CancelSwitch::Call call_;
};

}  // namespace

Recordset::Recordset() = default;
Recordset::~Recordset() = default;

void Recordset::Open(std::string_view source, const ConnectionPtr& activeConnection, std::int32_t cursorType,
                     std::int32_t lockType, std::int32_t /*options*/) {
    if (State() == adStateOpen) RaiseAdoError(AdoError::ObjectOpen);
    state_.reset();  // runs what an earlier batch has left
    state_ = RecordsetState::Open(source, activeConnection, cursorType, lockType);
}

void Recordset::Close() {
    if (!state_) RaiseAdoError(AdoError::ObjectClosed);
    const auto call = state_->BeginCall();
    state_->Close();
}

std::int32_t Recordset::State() {
    return state_ && state_->IsOpen() ? adStateOpen : adStateClosed;
}

void Recordset::RequireOtherFile(std::string_view path) const {
    if (state_) state_->RequireOtherFile(path);
}

bool Recordset::IsBOF() {
    return OpenCall(state_)->HasNoRows();
}

bool Recordset::IsEOF() {
    return OpenCall(state_)->AtEnd();
}

void Recordset::MoveFirst() {
    OpenCall(state_)->MoveFirst();
}

void Recordset::MoveNext() {
    OpenCall(state_)->MoveNext();
}

void Recordset::AddNew() {
    OpenCall(state_)->AddNew();
}

void Recordset::Update() {
    OpenCall(state_)->Update();
}

void Recordset::Delete() {
    OpenCall(state_)->Delete();
}

RecordsetPtr Recordset::NextRecordset() {
    if (!state_) return nullptr;
    const auto call = state_->BeginCall();
    auto nextState = state_->TakeNext();
    if (!nextState) return nullptr;
    auto next = std::make_shared<Recordset>();
    next->state_ = std::move(nextState);
    return next;
}

ado::Fields& Recordset::Fields() {
    return OpenCall(state_)->FieldList();
}

}  // namespace halvtiv::ado
