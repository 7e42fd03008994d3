#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include <halvtiv/ado.hpp>

#include "ado/errors.hpp"
#include "ado/provider.hpp"
#include "ado/row_editor.hpp"
#include "ado/row_spool.hpp"

namespace halvtiv::ado {

/// What the first statement of a recordset must be.
enum class FirstStatement { Any, ReturnsRows };

/// What a recordset stands on; also the way by which results read rows as text, without a variant between.
///
/// It holds one batch and the cursor of the statement that runs now. It lives as long as the recordset and
/// the fields that were taken from it; when it goes, what is left of the batch runs and errors are ignored.
///
/// A failure ends the batch: where a statement of it, or a change of its rows, has failed or was cancelled,
/// nothing of the batch runs any more. It also ends when an exception of the caller destroys the state,
/// because the caller then fails as a whole.
///
/// A recordset for changes is not run before its rows are asked for. Before its first change all rows that
/// are left are read, so that none comes round again in its new place; and `MoveFirst` reads them to the end,
/// as they are by then.
struct RecordsetState : std::enable_shared_from_this<RecordsetState> {
    /// Closed, with the whole batch to run.
    RecordsetState(std::shared_ptr<Session> session, std::shared_ptr<CancelSwitch> cancel,
                   std::unique_ptr<Batch> batch, std::int32_t cursorType, std::int32_t lockType);
    ~RecordsetState();
    RecordsetState(const RecordsetState&) = delete;
    RecordsetState& operator=(const RecordsetState&) = delete;

    /// What `Recordset::Open` does, for a connection that may be null.
    static std::shared_ptr<RecordsetState> Open(std::string_view source, const ConnectionPtr& connection,
                                                std::int32_t cursorType, std::int32_t lockType,
                                                FirstStatement first = FirstStatement::Any);
    /// A new recordset over rows. Raises -2146824584 for a first statement that returns none, without running
    /// it; with a lock type for changes, -2146825037 for one that itself changes rows.
    static RecordsetPtr OpenRows(std::string_view source, const ConnectionPtr& connection,
                                 std::int32_t cursorType, std::int32_t lockType);
    /// Lets nothing more of a recordset's batch run, whoever else holds the recordset. It may be null.
    static void EndBatch(const RecordsetPtr& recordset) noexcept;
    /// The state of an open recordset. Raises 91 for null, -2146824584 for a closed one and -2146824579 for
    /// one whose connection has been closed.
    static RecordsetState& Of(const RecordsetPtr& recordset);

    std::span<const ColumnInfo> Columns() const;
    /// Room for what a reader prepares from the columns. There must be a result.
    std::shared_ptr<const RowLayout>& Layout() { return cursor_->Layout(); }
    bool AtEnd() {
        if (!started_ && !editor_ && !parked_) Start();
        return atEnd_;
    }
    /// Goes to the next row; `AtEnd` tells whether there was one. Raises -2146825267 at the end. What has
    /// been assigned to the row is written first.
    void MoveNext();
    /// Calls read with the current row, which is good until the row changes. Raises -2146825267 at the end
    /// and on a deleted row. The only way to the row, so that a failure to read it ends the batch.
    template <typename Read>
    decltype(auto) ReadRow(Read&& read) {
        if (AtEnd() || deleted_) RaiseAdoError(AdoError::NoCurrentRecord);
        RowSource& row = editor_ ? *editor_ : StoredRow();
        return EndBatchOnFailure([&]() -> decltype(auto) { return read(row); });
    }

    /// As `Session::RequireOtherFile`.
    void RequireOtherFile(std::string_view path) const { session_->RequireOtherFile(path); }

    // Changing. Each raises -2146825037 where the rows cannot be changed.

    /// For who changes row after row and goes this way only once: keeps no rows for `MoveFirst`. Once the
    /// rows have been read ahead, only the given columns of them, and the key, have values.
    void PassOnce(std::vector<std::int32_t> columns);
    /// Whoever changes rows here undoes all changes after a failure: none needs to be undone by itself.
    void UndoneTogether() noexcept { undoneTogether_ = true; }
    /// The current row to assign to; raises -2146825267 when there is none.
    RowEditor& Edit();
    void AddNew();
    /// Writes what has been assigned to the current row; nothing where that is nothing.
    void Update();
    void Delete();

    // What `Recordset` and its fields are made of beyond that.

    /// Whether rows of a statement can be read: not closed, and neither is the connection.
    bool IsOpen() const;
    /// Raises -2146824584, -2146824579 or, where the connection is lost, -2147467259 when it is not open.
    void RequireOpen() const {
        if (!cursor_) RaiseAdoError(AdoError::ObjectClosed);
        if (!session_->IsAlive()) session_->RaiseUnusable();
    }
    /// Runs the batch's next statement and stands on its first row, or stays closed where it returns none.
    /// False when there was none left. affectedRows receives the rows that it changed, -1 for a query.
    bool RunNext(std::int32_t* affectedRows = nullptr);
    /// Goes to the first row again.
    void MoveFirst();
    bool HasNoRows();
    /// Ends the current statement and runs the others; raises their error, or -2146824584 when it was closed
    /// with nothing left to run. Closed in any case. What has been assigned but not written is given up.
    void Close();
    /// Ends the current statement; a state over the batch's next one, or null when there was none.
    std::shared_ptr<RecordsetState> TakeNext();

    /// A use of the recordset from outside, which `Cancel` stops.
    CancelSwitch::Call BeginCall() const noexcept { return CancelSwitch::Call(*cancel_); }

    ado::Fields& FieldList() noexcept { return fields_; }
    /// The field, made when it is first asked for.
    FieldPtr FieldAt(std::int32_t index);
    /// Whether values can be assigned to a column.
    bool IsUpdatable(std::int32_t column) const;
    bool IsReadOnly() const noexcept { return lockType_ <= adLockReadOnly; }
    /// Another number for each row that becomes current.
    std::int64_t RowSerial() const noexcept { return rowSerial_; }

private:
    /// Nothing more of the batch runs after a failure of this action, which works on the database.
    template <typename Action>
    decltype(auto) EndBatchOnFailure(Action&& action) {
        try {
            return action();
        } catch (...) {
            batch_.reset();
            throw;
        }
    }
    /// Runs the query up to its first row.
    void Start();
    void FinishCursor();
    std::unique_ptr<RowSpool> NewSpool() const;
    /// The row below what has been assigned to it.
    RowSource& StoredRow() noexcept {
        if (replaying_) return *kept_;
        return onAhead_ ? static_cast<RowSource&>(*ahead_) : *cursor_;
    }
    std::int32_t RowWidth() const;
    /// Writes and keeps the current row; nothing is current after it.
    void LeaveRow();
    /// The next row that has been read ahead, or the cursor's.
    bool Advance();
    /// Reads the rows that are left, the current one first; it stays current.
    void ReadAhead();
    void RequireTarget() const;
    void GoToFirstOfAll();

    std::shared_ptr<Session> session_;
    std::unique_ptr<Batch> batch_;  // null once it has ended
    int exceptionsAround_ = std::uncaught_exceptions();
    std::unique_ptr<Cursor> cursor_;  // null while closed
    std::int32_t cursorType_;
    std::int32_t lockType_;
    bool started_ = true;  // false while the query is yet to run
    bool parked_ = false;  // behind a new row, at the end of a query that has not run
    bool atEnd_ = true;
    bool hasNoRows_ = true;
    bool cursorEnded_ = true;  // the cursor has no row behind the current one
    bool onFirstRow_ = false;
    std::int64_t rowSerial_ = 0;

    std::unique_ptr<RowSpool> kept_;   // the rows that have passed, unless forward-only
    std::unique_ptr<RowSpool> added_;  // the new ones among them, which stand behind all others
    bool replaying_ = false;           // the current row is one of those kept; only without changes

    std::shared_ptr<const ChangeTarget> target_;       // null where rows cannot be changed
    std::optional<std::vector<std::int32_t>> needed_;  // the columns to read ahead; nothing: all
    bool undoneTogether_ = false;
    std::unique_ptr<RowSpool> ahead_;  // rows that come before the cursor's next
    bool onAhead_ = false;             // the current row is one of those
    std::optional<RowEditor> editor_;  // of the current row, once it is assigned to
    bool deleted_ = false;             // the current row is

    ado::Fields fields_{*this};
    std::vector<std::unique_ptr<Field>> fieldsMade_;
    std::shared_ptr<CancelSwitch> cancel_;
};

}  // namespace halvtiv::ado
