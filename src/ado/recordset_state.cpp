#include "ado/recordset_state.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include "ado/errors.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::ado {

RecordsetState::RecordsetState(std::shared_ptr<Session> session, std::unique_ptr<Batch> batch,
                               std::int32_t cursorType, std::int32_t lockType)
    : session_(std::move(session)), batch_(std::move(batch)), cursorType_(cursorType), lockType_(lockType) {}

RecordsetState::~RecordsetState() {
    if (!batch_) return;
    try {
        Close();
    } catch (...) {
        // Who wants to hear of it closes the recordset.
    }
}

RecordsetState& RecordsetState::Of(const RecordsetPtr& recordset) {
    if (!recordset) platform::RaiseRunTimeError(platform::RunTimeError::ObjectNotSet);
    if (!recordset->state_) RaiseAdoError(AdoError::ObjectClosed);
    recordset->state_->RequireOpen();
    return *recordset->state_;
}

bool RecordsetState::IsOpen() const {
    return cursor_ && session_->IsAlive();
}

void RecordsetState::RequireOpen() const {
    if (!cursor_) RaiseAdoError(AdoError::ObjectClosed);
    if (!session_->IsAlive()) RaiseAdoError(AdoError::InvalidConnection);
}

std::span<const ColumnInfo> RecordsetState::Columns() const {
    RequireOpen();
    return cursor_->Columns();
}

RowSource& RecordsetState::Row() {
    if (atEnd_) RaiseAdoError(AdoError::NoCurrentRecord);
    if (fromSpool_) return *spool_;
    return *cursor_;
}

void RecordsetState::MoveNext() {
    if (atEnd_) RaiseAdoError(AdoError::NoCurrentRecord);
    ++rowSerial_;
    onFirstRow_ = false;
    if (fromSpool_) {
        if (spool_->Next()) return;
        // After the last row kept comes the one on which the cursor has stayed, if it is not at its end.
        fromSpool_ = false;
        atEnd_ = cursorEnded_;
        return;
    }
    atEnd_ = cursorEnded_ = true;  // holds when one of these fails
    if (spool_) spool_->Append(*cursor_);
    atEnd_ = cursorEnded_ = !cursor_->Next();
}

void RecordsetState::MoveFirst() {
    RequireOpen();
    if (hasNoRows_) RaiseAdoError(AdoError::NoCurrentRecord);
    if (onFirstRow_) return;
    if (!spool_) RaiseAdoError(AdoError::NotSupported);
    spool_->Rewind();
    fromSpool_ = true;
    atEnd_ = !spool_->Next();
    onFirstRow_ = true;
    ++rowSerial_;
}

bool RecordsetState::RunNext(std::int32_t* affectedRows) {
    if (!batch_) return false;
    auto result = batch_->RunNext();
    if (!result) {
        batch_.reset();
        return false;
    }
    if (affectedRows) {
        *affectedRows = static_cast<std::int32_t>(
            std::clamp<std::int64_t>(result->affectedRows, -1, std::numeric_limits<std::int32_t>::max()));
    }
    if (!result->rows) return true;
    const bool hasRow = result->rows->Next();
    if (cursorType_ != adOpenForwardOnly) spool_.emplace(result->rows->Columns());
    cursor_ = std::move(result->rows);
    atEnd_ = hasNoRows_ = cursorEnded_ = !hasRow;
    onFirstRow_ = hasRow;
    ++rowSerial_;
    return true;
}

// Closed afterwards in any case; an error ends the batch.
void RecordsetState::FinishCursor() {
    if (!cursor_) return;
    const auto cursor = std::exchange(cursor_, nullptr);
    spool_.reset();
    fromSpool_ = onFirstRow_ = false;
    atEnd_ = hasNoRows_ = true;
    if (!session_->IsAlive()) return;
    try {
        cursor->Finish();
    } catch (...) {
        batch_.reset();
        throw;
    }
}

void RecordsetState::Close() {
    bool hadWork = cursor_ != nullptr;
    FinishCursor();
    // The batch must not be found here again, by whoever an error is raised to.
    const auto batch = std::exchange(batch_, nullptr);
    while (batch) {
        const auto result = batch->RunNext();
        if (!result) break;
        hadWork = true;
        if (result->rows) result->rows->Finish();
    }
    if (!hadWork) RaiseAdoError(AdoError::ObjectClosed);
}

std::shared_ptr<RecordsetState> RecordsetState::TakeNext() {
    FinishCursor();
    if (!batch_) return nullptr;
    auto next =
        std::make_shared<RecordsetState>(session_, std::exchange(batch_, nullptr), cursorType_, lockType_);
    if (!next->RunNext()) return nullptr;
    return next;
}

FieldPtr RecordsetState::FieldAt(std::int32_t index) {
    const auto count = Columns().size();
    const auto position = static_cast<std::size_t>(index);
    if (index < 0 || position >= count) RaiseAdoError(AdoError::ItemNotFound);
    if (fieldsMade_.size() < count) fieldsMade_.resize(count);
    auto& field = fieldsMade_[position];
    if (!field) field.reset(new Field(*this, index));  // the constructor is the state's alone
    return FieldPtr(shared_from_this(), field.get());
}

}  // namespace halvtiv::ado
