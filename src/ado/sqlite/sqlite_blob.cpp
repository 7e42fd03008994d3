#include "ado/sqlite/sqlite_blob.hpp"

#include <sqlite3.h>

#include <algorithm>
#include <utility>

#include "ado/errors.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::size_t kPieceSize = std::size_t{256} * 1024;

}  // namespace

void CloseSqliteBlob::operator()(sqlite3_blob* blob) const noexcept {
    sqlite3_blob_close(blob);
}

SqliteDeferredValues::SqliteDeferredValues(std::shared_ptr<SqliteSession> session, const SqlitePlan& plan)
    : session_(std::move(session)),
      deferred_(plan.deferred),
      names_(plan.names),
      schema_(plan.schema),
      table_(plan.table),
      rowIdColumn_(plan.rowIdColumn) {
    session_->AddReader(*this);
}

SqliteDeferredValues::~SqliteDeferredValues() {
    Release();
    session_->RemoveReader(*this);
}

bool SqliteDeferredValues::Holds(std::int32_t column) const {
    const auto index = static_cast<std::size_t>(column);
    return index < deferred_.size() && deferred_[index];
}

sqlite3_blob* SqliteDeferredValues::HandleFor(RowSource& row, std::int32_t column) {
    session_->StopIfCancelled();
    auto* const database = session_->Database();
    const auto rowId = row.Value(rowIdColumn_).integer;
    auto& open = open_[column];
    if (open.handle && open.rowId == rowId) return open.handle.get();
    open.rowId = rowId;
    if (open.handle && sqlite3_blob_reopen(open.handle.get(), rowId) == SQLITE_OK) return open.handle.get();
    sqlite3_blob* opened = nullptr;
    const int status = sqlite3_blob_open(database, schema_.c_str(), table_.c_str(),
                                         names_[static_cast<std::size_t>(column)].c_str(), rowId, 0, &opened);
    open.handle.reset(opened);
    if (status == SQLITE_OK) return opened;
    open_.erase(column);
    const std::string_view words = sqlite3_errmsg(database);
    if (words.starts_with("no such rowid")) RaiseAdoError(AdoError::NoCurrentRecord);
    RaiseSqliteError(database, status);
}

std::int64_t SqliteDeferredValues::Size(RowSource& row, std::int32_t column) {
    return sqlite3_blob_bytes(HandleFor(row, column));
}

std::size_t SqliteDeferredValues::Read(RowSource& row, std::int32_t column, std::int64_t offset,
                                       std::span<std::uint8_t> piece) {
    for (bool again = false;; again = true) {
        auto* const handle = HandleFor(row, column);
        const std::int64_t left = std::max<std::int64_t>(sqlite3_blob_bytes(handle) - offset, 0);
        const auto count = std::min({piece.size(), static_cast<std::size_t>(left), kPieceSize});
        if (count == 0) return 0;
        const int status =
            sqlite3_blob_read(handle, piece.data(), static_cast<int>(count), static_cast<int>(offset));
        if (status == SQLITE_OK) return count;
        open_.erase(column);
        // The row has been changed since: another look gives its value as it is by now.
        if (status != SQLITE_ABORT || again) RaiseSqliteError(session_->Database(), status);
    }
}

void FillSqliteBlob(SqliteSession& session, const ChangeTarget::Table& table, const std::string& column,
                    std::int64_t rowId, ByteSource& source) {
    auto* const database = session.Database();
    sqlite3_blob* opened = nullptr;
    const int status = sqlite3_blob_open(database, table.schema.c_str(), table.plainName.c_str(),
                                         column.c_str(), rowId, 1, &opened);
    const SqliteBlobHandle handle(opened);
    if (status != SQLITE_OK) RaiseSqliteError(database, status);
    std::vector<std::uint8_t> piece(kPieceSize);
    const auto size = source.Size();
    for (std::int64_t offset = 0; offset < size;) {
        session.StopIfCancelled();
        const auto count = std::min<std::int64_t>(size - offset, kPieceSize);
        const auto part = std::span(piece).first(static_cast<std::size_t>(count));
        source.Read(offset, part);
        const int written =
            sqlite3_blob_write(handle.get(), part.data(), static_cast<int>(count), static_cast<int>(offset));
        if (written != SQLITE_OK) RaiseSqliteError(database, written);
        offset += count;
    }
}

}  // namespace halvtiv::ado
