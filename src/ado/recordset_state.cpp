#include "ado/recordset_state.hpp"

#include <algorithm>
#include <limits>
#include <utility>

#include "ado/connection_impl.hpp"
#include "ado/errors.hpp"
#include "ado/table_name.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::ado {

RecordsetState::RecordsetState(std::shared_ptr<Session> session, std::shared_ptr<CancelSwitch> cancel,
                               std::unique_ptr<Batch> batch, std::int32_t cursorType, std::int32_t lockType)
    : session_(std::move(session)),
      batch_(std::move(batch)),
      cursorType_(cursorType),
      lockType_(lockType),
      cancel_(std::move(cancel)) {}

RecordsetState::~RecordsetState() {
    if (!batch_ || std::uncaught_exceptions() > exceptionsAround_) return;
    const auto call = BeginCall();
    try {
        Close();
    } catch (...) {
        // Who wants to hear of it closes the recordset.
    }
}

std::shared_ptr<RecordsetState> RecordsetState::Open(std::string_view source, const ConnectionPtr& connection,
                                                     std::int32_t cursorType, std::int32_t lockType,
                                                     FirstStatement first) {
    const auto session = connection ? ConnectionInside::SessionOf(*connection) : nullptr;
    if (!session) RaiseAdoError(AdoError::InvalidConnection);
    const auto& cancel = ConnectionInside::CancelSwitchOf(*connection);
    const CancelSwitch::Call call(*cancel);
    if (!session->IsAlive()) session->RaiseUnusable();
    const auto purpose = lockType <= adLockReadOnly ? Purpose::Read : Purpose::Change;
    auto batch = session->Prepare(CommandTextOf(source), purpose);
    if (first == FirstStatement::ReturnsRows) batch->RequireRows();
    auto state = std::make_shared<RecordsetState>(session, cancel, std::move(batch), cursorType, lockType);
    state->RunNext();
    return state;
}

RecordsetPtr RecordsetState::OpenRows(std::string_view source, const ConnectionPtr& connection,
                                      std::int32_t cursorType, std::int32_t lockType) {
    auto opened = std::make_shared<Recordset>();
    opened->state_ = Open(source, connection, cursorType, lockType, FirstStatement::ReturnsRows);
    return opened;
}

void RecordsetState::EndBatch(const RecordsetPtr& recordset) noexcept {
    if (recordset && recordset->state_) recordset->state_->batch_.reset();
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

std::span<const ColumnInfo> RecordsetState::Columns() const {
    RequireOpen();
    return cursor_->Columns();
}

std::int32_t RecordsetState::RowWidth() const {
    return cursor_->RowWidth();
}

std::unique_ptr<RowSpool> RecordsetState::NewSpool() const {
    auto spool = std::make_unique<RowSpool>(cursor_->Columns(), RowWidth(), cursor_->Deferred());
    if (target_) {
        for (const auto& table : target_->tables) {
            for (const auto& part : table.key) spool->KeepAsItStands(part.column);
        }
    }
    return spool;
}

void RecordsetState::PassOnce(std::vector<std::int32_t> columns) {
    kept_.reset();
    if (!target_) return;
    for (const auto& table : target_->tables) {
        for (const auto& part : table.key) columns.push_back(part.column);
    }
    std::sort(columns.begin(), columns.end());
    columns.erase(std::unique(columns.begin(), columns.end()), columns.end());
    needed_ = std::move(columns);
}

void RecordsetState::Start() {
    started_ = true;
    const bool hasRow = EndBatchOnFailure([&] { return cursor_->Next(); });
    atEnd_ = hasNoRows_ = cursorEnded_ = !hasRow;
    onFirstRow_ = hasRow;
    ++rowSerial_;
}

bool RecordsetState::RunNext(std::int32_t* affectedRows) {
    if (!batch_) return false;
    auto result = EndBatchOnFailure([&] { return batch_->RunNext(); });
    if (!result) {
        batch_.reset();
        return false;
    }
    if (affectedRows) {
        *affectedRows = static_cast<std::int32_t>(
            std::clamp<std::int64_t>(result->affectedRows, -1, std::numeric_limits<std::int32_t>::max()));
    }
    if (!result->rows) return true;
    cursor_ = std::move(result->rows);
    target_ = cursor_->Target();
    started_ = false;
    if (IsReadOnly()) {
        try {
            Start();
        } catch (...) {
            FinishCursor();
            throw;
        }
    }
    if (cursorType_ != adOpenForwardOnly) kept_ = NewSpool();
    return true;
}

void RecordsetState::MoveNext() {
    if (AtEnd()) RaiseAdoError(AdoError::NoCurrentRecord);
    const bool wasNew = editor_ && editor_->IsNew();  // behind it there is nothing
    LeaveRow();
    parked_ = !started_;
    atEnd_ = wasNew || !Advance();
}

bool RecordsetState::HasNoRows() {
    if (!started_) {
        if (editor_ || parked_) return false;
        Start();
    }
    return hasNoRows_;
}

void RecordsetState::LeaveRow() {
    const bool wasNew = editor_ && editor_->IsNew();
    if (editor_ && !deleted_ && editor_->HasChanges()) EndBatchOnFailure([&] { editor_->Write(); });
    ++rowSerial_;
    onFirstRow_ = false;
    atEnd_ = true;  // holds when one of these fails
    // A row that was added before the query has run comes out of the query.
    const bool isKept = kept_ && !replaying_ && !deleted_ && (!wasNew || started_);
    if (isKept && wasNew) {
        if (!added_) added_ = NewSpool();
        added_->Append(*editor_);
    } else if (isKept) {
        auto& row = editor_ ? static_cast<RowSource&>(*editor_) : StoredRow();
        EndBatchOnFailure([&] { kept_->Append(row); });
    }
    editor_.reset();
    deleted_ = false;
}

bool RecordsetState::Advance() {
    if (replaying_) {
        if (kept_->Next()) return true;
        // After the last row kept comes the one on which the cursor has stayed, if it is not at its end.
        replaying_ = false;
        return !cursorEnded_;
    }
    if (ahead_) {
        onAhead_ = ahead_->Next();
        return onAhead_;
    }
    if (cursorEnded_) return false;
    cursorEnded_ = true;  // holds when the next line fails
    cursorEnded_ = !EndBatchOnFailure([&] { return cursor_->Next(); });
    return !cursorEnded_;
}

void RecordsetState::MoveFirst() {
    RequireOpen();
    if (!started_) {
        if (editor_) LeaveRow();
        parked_ = false;
    }
    if (HasNoRows()) RaiseAdoError(AdoError::NoCurrentRecord);
    if (onFirstRow_ && !editor_) return;
    if (!kept_) RaiseAdoError(AdoError::NotSupported);
    if (!IsReadOnly()) return GoToFirstOfAll();
    kept_->Rewind();
    replaying_ = true;
    atEnd_ = !kept_->Next();
    onFirstRow_ = true;
    ++rowSerial_;
}

// All rows pass by once more, as they are by now.
void RecordsetState::GoToFirstOfAll() {
    if (!atEnd_) LeaveRow();
    while (Advance()) LeaveRow();
    if (added_) {
        for (added_->Rewind(); added_->Next();) kept_->Append(*added_);
        added_.reset();
    }
    ahead_ = std::move(kept_);
    kept_ = NewSpool();
    ahead_->Rewind();
    hasNoRows_ = ahead_->Empty();
    atEnd_ = !Advance();
    onFirstRow_ = !atEnd_;
    ++rowSerial_;
    if (atEnd_) RaiseAdoError(AdoError::NoCurrentRecord);
}

bool RecordsetState::IsUpdatable(std::int32_t column) const {
    return !IsReadOnly() && target_ && target_->columns[static_cast<std::size_t>(column)].table >= 0;
}

void RecordsetState::RequireTarget() const {
    RequireOpen();
    if (IsReadOnly() || !target_) RaiseAdoError(AdoError::NotSupported);
}

void RecordsetState::ReadAhead() {
    if (ahead_) return;
    auto rows = NewSpool();
    if (needed_) rows->KeepOnly(*needed_);
    if (!cursorEnded_) {
        EndBatchOnFailure([&] {
            do {
                rows->Append(*cursor_);
            } while (cursor_->Next());
        });
    }
    cursorEnded_ = true;
    ahead_ = std::move(rows);
    ahead_->Rewind();
    onAhead_ = !atEnd_ && ahead_->Next();
}

RowEditor& RecordsetState::Edit() {
    RequireTarget();
    if (!editor_) {
        if (AtEnd() || deleted_) RaiseAdoError(AdoError::NoCurrentRecord);
        ReadAhead();
        editor_.emplace(*session_, *target_, cursor_->Columns(), &StoredRow());
        if (undoneTogether_) editor_->UndoneTogether();
    }
    if (deleted_) RaiseAdoError(AdoError::NoCurrentRecord);
    ++rowSerial_;
    return *editor_;
}

void RecordsetState::AddNew() {
    RequireTarget();
    if (!started_) {
        if (editor_) LeaveRow();
    } else {
        ReadAhead();  // or the query might come upon the new row
        if (!atEnd_) LeaveRow();
    }
    editor_.emplace(*session_, *target_, cursor_->Columns(), nullptr);
    atEnd_ = onAhead_ = onFirstRow_ = false;
    ++rowSerial_;
}

void RecordsetState::Update() {
    RequireTarget();
    if (editor_ && !deleted_) {
        EndBatchOnFailure([&] { editor_->Write(); });
        if (started_) hasNoRows_ = false;
        ++rowSerial_;
    } else if (AtEnd() || deleted_) {
        RaiseAdoError(AdoError::NoCurrentRecord);
    }
}

void RecordsetState::Delete() {
    RequireTarget();
    if (editor_ && editor_->IsNew() && editor_->HasChanges()) RaiseAdoError(AdoError::NotSupported);
    auto& row = Edit();
    EndBatchOnFailure([&] { row.Delete(); });
    deleted_ = true;
}

// Closed afterwards in any case; an error ends the batch.
void RecordsetState::FinishCursor() {
    if (!cursor_) return;
    editor_.reset();
    ahead_.reset();
    kept_.reset();
    added_.reset();
    target_.reset();
    needed_.reset();
    undoneTogether_ = false;
    replaying_ = onAhead_ = onFirstRow_ = deleted_ = parked_ = false;
    atEnd_ = hasNoRows_ = cursorEnded_ = started_ = true;
    const auto cursor = std::exchange(cursor_, nullptr);
    if (!session_->IsAlive()) return;
    EndBatchOnFailure([&] { cursor->Finish(); });
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
    auto next = std::make_shared<RecordsetState>(session_, cancel_, std::exchange(batch_, nullptr),
                                                 cursorType_, lockType_);
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
