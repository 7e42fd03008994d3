#include "ado/sqlite/sqlite_cursor.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <utility>

#include "ado/errors.hpp"
#include "ado/sqlite/sqlite_blob.hpp"
#include "platform/run_time_error.hpp"

namespace halvtiv::ado {

SqliteCursor::SqliteCursor(SqliteSession::Lease statement)
    : statement_(std::move(statement)), columns_(statement_->Columns().data()), isFirstStep_(true) {
    const auto* const plan = statement_->Plan();
    if (plan && plan->HasDeferred()) {
        deferred_ = std::make_shared<SqliteDeferredValues>(statement_.SharedOwner(), *plan);
    }
}

SqliteCursor::SqliteCursor(SqliteSession::Lease statement, bool hasRow) : SqliteCursor(std::move(statement)) {
    isFirstStep_ = false;
    firstRowIsDue_ = hasRow;
    ended_ = !hasRow;
}

SqliteCursor::~SqliteCursor() {
    try {
        Finish();
    } catch (...) {
        // Who wants to hear of it finishes the cursor.
    }
}

std::int32_t SqliteCursor::RowWidth() const {
    const auto* const plan = statement_->Plan();
    if (!plan) return Cursor::RowWidth();
    return plan->target ? plan->target->width : std::max(Cursor::RowWidth(), plan->rowIdColumn + 1);
}

std::shared_ptr<const ChangeTarget> SqliteCursor::Target() const {
    const auto* const plan = statement_->Plan();
    return plan ? plan->target : nullptr;
}

void SqliteCursor::Finish() {
    if (deferred_) deferred_->Release();
    if (std::exchange(ended_, true) || !statement_->Handle()) return;
    // A statement that changes data commits at its end, and may fail there.
    if (sqlite3_stmt_readonly(statement_->Handle())) return;
    while (statement_.Owner().Step(*statement_)) continue;
}

bool SqliteCursor::Next() {
    if (std::exchange(firstRowIsDue_, false)) return true;
    if (ended_) return false;
    ended_ = true;  // holds when the step fails
    ended_ = !statement_.Owner().Step(*statement_);
    if (std::exchange(isFirstStep_, false)) RefreshColumns();
    if (ended_ && deferred_) deferred_->Release();  // what is open keeps the table from being dropped
    return !ended_;
}

// Whoever got the columns before the query ran counts on them.
void SqliteCursor::RefreshColumns() {
    const auto count = Columns().size();
    const bool isUpToDate = statement_->RefreshColumns(!ended_);
    columns_ = statement_->Columns().data();
    if (isUpToDate && Columns().size() == count) return;
    ended_ = true;
    throw MakeProviderError(AdoError::Unspecified,
                            "The tables of the query have been altered since it was opened.", kSqliteName);
}

// The library's way to a cell with the least between; it is safe where one thread uses the connection.
sqlite3_value* SqliteCursor::ValueAt(std::int32_t column) const {
    auto* const handle = statement_->Handle();
    if (!handle) statement_.Owner().RaiseUnusable();
    return sqlite3_column_value(handle, column);
}

bool SqliteCursor::IsNull(std::int32_t column) {
    return sqlite3_value_type(ValueAt(column)) == SQLITE_NULL;
}

bool SqliteCursor::IsDeferred(std::int32_t column, int kind) const {
    return deferred_ && (kind == SQLITE_TEXT || kind == SQLITE_BLOB) && deferred_->Holds(column);
}

CellValue SqliteCursor::Value(std::int32_t column) {
    auto* const value = ValueAt(column);
    switch (sqlite3_value_type(value)) {
        case SQLITE_INTEGER:
            return {CellKind::Integer, sqlite3_value_int64(value), 0, {}};
        case SQLITE_FLOAT:
            return {CellKind::Double, 0, sqlite3_value_double(value), {}};
        case SQLITE_TEXT: {
            const auto* bytes = reinterpret_cast<const char*>(sqlite3_value_text(value));
            if (!bytes) platform::RaiseRunTimeError(platform::RunTimeError::OutOfMemory);
            return {CellKind::Text, 0, 0, {bytes, static_cast<std::size_t>(sqlite3_value_bytes(value))}};
        }
        case SQLITE_BLOB: {
            const auto* bytes = static_cast<const char*>(sqlite3_value_blob(value));
            return {CellKind::Blob,
                    0,
                    0,
                    {bytes ? bytes : "", static_cast<std::size_t>(sqlite3_value_bytes(value))}};
        }
        default:
            return {};
    }
}

std::string_view SqliteCursor::Text(std::int32_t column) {
    auto* const value = ValueAt(column);
    const auto type = columns_[column].type;
    const int kind = sqlite3_value_type(value);
    if (IsDeferred(column, kind)) return ReadWholeValue(*this, column, wholeValue_);
    switch (kind) {
        case SQLITE_INTEGER:
            return CellTextOfInteger(sqlite3_value_int64(value), type, buffer_);
        case SQLITE_FLOAT:
            return CellTextOfDouble(sqlite3_value_double(value), type, buffer_);
        case SQLITE_TEXT: {
            const auto* bytes = reinterpret_cast<const char*>(sqlite3_value_text(value));
            if (!bytes) platform::RaiseRunTimeError(platform::RunTimeError::OutOfMemory);
            const std::string_view text(bytes, static_cast<std::size_t>(sqlite3_value_bytes(value)));
            return HasTextForm(type) ? CellTextOfText(text, type, buffer_) : text;
        }
        case SQLITE_BLOB: {
            const auto* bytes = static_cast<const char*>(sqlite3_value_blob(value));
            const std::string_view blob(bytes ? bytes : "",
                                        static_cast<std::size_t>(sqlite3_value_bytes(value)));
            return CellTextOfBytes(blob, type, buffer_);
        }
        default:
            return {};
    }
}

std::int64_t SqliteCursor::Size(std::int32_t column) {
    if (IsDeferred(column, sqlite3_value_type(ValueAt(column)))) return deferred_->Size(*this, column);
    return static_cast<std::int64_t>(Text(column).size());
}

std::size_t SqliteCursor::Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) {
    if (IsDeferred(column, sqlite3_value_type(ValueAt(column)))) {
        return deferred_->Read(*this, column, offset, piece);
    }
    return CopyPiece(Text(column), offset, piece);
}

}  // namespace halvtiv::ado
