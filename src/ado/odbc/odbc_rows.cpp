#include "ado/odbc/odbc_rows.hpp"

#include <algorithm>

#include "ado/cell_text.hpp"
#include "ado/odbc/odbc_text.hpp"

namespace halvtiv::ado {
namespace {

constexpr SQLULEN kMostRows = 100;
constexpr std::size_t kBlockMemory = std::size_t{1} << 20;
constexpr std::size_t kPieceSize = std::size_t{64} << 10;
constexpr std::size_t kKeptInMemory = std::size_t{4} << 20;

std::size_t Index(std::int32_t column) noexcept {
    return static_cast<std::size_t>(column);
}

std::size_t TerminatorSize(OdbcForm form) noexcept {
    if (form == OdbcForm::Text) return 1;
    return form == OdbcForm::WideText ? sizeof(SQLWCHAR) : 0;
}

std::span<const SQLWCHAR> AsWide(std::string_view bytes) {
    return {reinterpret_cast<const SQLWCHAR*>(bytes.data()), bytes.size() / sizeof(SQLWCHAR)};
}

}  // namespace

OdbcRows::OdbcRows(OdbcSession& session, SQLHSTMT statement, std::span<const OdbcColumn> columns)
    : session_(session),
      statement_(statement),
      columns_(columns),
      bound_(columns.size()),
      fetched_(columns.size()) {
    std::size_t rowSize = 1;
    bool hasUnbound = false;
    for (const auto& column : columns_) {
        rowSize += column.cellSize + sizeof(SQLLEN);
        hasUnbound = hasUnbound || !column.IsBound();
    }
    const bool canReachBack = (session_.Traits().getDataExtensions & SQL_GD_BLOCK) != 0;
    // SQLite keeps to no length that its driver tells: a cell that is longer is asked for again.
    const bool mayNotFit = session_.Traits().dialect == OdbcDialect::Sqlite;
    SQLULEN wanted = 1;
    if (session_.Traits().bindsColumns && (!(hasUnbound || mayNotFit) || canReachBack)) {
        wanted = std::clamp<SQLULEN>(kBlockMemory / rowSize, 1, kMostRows);
    }
    try {
        Bind(wanted);
    } catch (...) {
        Unbind();
        throw;
    }
}

void OdbcRows::Bind(SQLULEN rowsWanted) {
    // A driver that knows no blocks refuses, and one row at a time is what it gives anyway.
    const bool takesBlocks =
        rowsWanted > 1 && SQL_SUCCEEDED(SQLSetStmtAttr(statement_, SQL_ATTR_ROW_ARRAY_SIZE,
                                                       reinterpret_cast<SQLPOINTER>(rowsWanted), 0));
    blockSize_ = takesBlocks ? rowsWanted : 1;
    if (takesBlocks) {
        rowStates_.resize(blockSize_);
        SQLSetStmtAttr(statement_, SQL_ATTR_ROWS_FETCHED_PTR, &rowsInBlock_, 0);
        SQLSetStmtAttr(statement_, SQL_ATTR_ROW_STATUS_PTR, rowStates_.data(), 0);
    }
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (!columns_[i].IsBound()) continue;
        bound_[i].cells.resize(columns_[i].cellSize * blockSize_);
        bound_[i].lengths.resize(blockSize_);
        session_.Check(SQLBindCol(statement_, static_cast<SQLUSMALLINT>(i + 1), columns_[i].cType,
                                  bound_[i].cells.data(), static_cast<SQLLEN>(columns_[i].cellSize),
                                  bound_[i].lengths.data()),
                       statement_);
    }
}

OdbcRows::~OdbcRows() {
    Unbind();
}

// The statement may go on with another result.
void OdbcRows::Unbind() noexcept {
    if (!session_.IsUsable()) return;
    SQLFreeStmt(statement_, SQL_UNBIND);
    if (blockSize_ == 1) return;
    SQLSetStmtAttr(statement_, SQL_ATTR_ROWS_FETCHED_PTR, nullptr, 0);
    SQLSetStmtAttr(statement_, SQL_ATTR_ROW_STATUS_PTR, nullptr, 0);
    SQLSetStmtAttr(statement_, SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(SQLULEN{1}), 0);
}

bool OdbcRows::Next() {
    if (ended_) return false;
    if (hasFetched_) {
        for (auto& cell : fetched_) cell = {};
        hasFetched_ = false;
    }
    isPlaced_ = blockSize_ == 1;
    if (row_ + 1 < rowsInBlock_) {
        ++row_;
        return true;
    }
    ended_ = true;  // holds when the fetch fails
    row_ = 0;
    rowsInBlock_ = 0;
    // A driver that leaves the length of a fixed type alone would leave the null of a row before.
    for (auto& bound : bound_) std::fill(bound.lengths.begin(), bound.lengths.end(), SQLLEN{0});
    const auto status = session_.Wait(statement_, [this] { return SQLFetch(statement_); });
    if (status == SQL_NO_DATA) return false;
    session_.Check(status, statement_);
    if (blockSize_ == 1) rowsInBlock_ = 1;
    ended_ = rowsInBlock_ == 0;
    return !ended_;
}

bool OdbcRows::IsWhole(std::int32_t column) const {
    const auto& about = columns_[Index(column)];
    const auto length = bound_[Index(column)].lengths[row_];
    if (about.form != OdbcForm::Text && about.form != OdbcForm::WideText && about.form != OdbcForm::Binary) {
        return true;
    }
    return length >= 0 && static_cast<std::size_t>(length) + TerminatorSize(about.form) <= about.cellSize;
}

std::string_view OdbcRows::BoundBytes(std::int32_t column) const {
    const auto& about = columns_[Index(column)];
    const auto& bound = bound_[Index(column)];
    const char* const cell = bound.cells.data() + row_ * about.cellSize;
    const bool hasLength =
        about.form == OdbcForm::Text || about.form == OdbcForm::WideText || about.form == OdbcForm::Binary;
    return {cell, hasLength ? static_cast<std::size_t>(bound.lengths[row_]) : about.cellSize};
}

bool OdbcRows::IsNull(std::int32_t column) {
    if (columns_[Index(column)].IsBound()) return bound_[Index(column)].lengths[row_] == SQL_NULL_DATA;
    return Fetch(column).isNull;
}

std::string_view OdbcRows::Bytes(std::int32_t column) {
    const auto& about = columns_[Index(column)];
    if (about.IsBound() && IsWhole(column)) {
        const auto bytes = BoundBytes(column);
        if (about.form != OdbcForm::WideText) return bytes;
        text_.clear();
        AppendUtf8(text_, AsWide(bytes));
        return text_;
    }
    auto& cell = Fetch(column);
    if (!cell.spooled) return cell.memory;
    text_.resize(static_cast<std::size_t>(cell.spooled->Size()));
    cell.spooled->Read(0, std::span(reinterpret_cast<std::uint8_t*>(text_.data()), text_.size()));
    return text_;
}

std::int64_t OdbcRows::Size(std::int32_t column) {
    if (columns_[Index(column)].IsBound() && IsWhole(column)) {
        return static_cast<std::int64_t>(Bytes(column).size());
    }
    auto& cell = Fetch(column);
    return cell.spooled ? cell.spooled->Size() : static_cast<std::int64_t>(cell.memory.size());
}

std::size_t OdbcRows::Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) {
    const auto& spooled = fetched_[Index(column)].spooled;
    if (!spooled) return CopyPiece(Bytes(column), offset, piece);
    const auto left = std::max<std::int64_t>(Size(column) - offset, 0);
    const auto count = std::min(piece.size(), static_cast<std::size_t>(left));
    if (count > 0) spooled->Read(offset, piece.first(count));
    return count;
}

// Where the driver gives cells in order only, those in front of it come first.
OdbcRows::Fetched& OdbcRows::Fetch(std::int32_t column) {
    auto& wanted = fetched_[Index(column)];
    if (wanted.isThere) return wanted;
    hasFetched_ = true;
    if (!isPlaced_) {
        session_.Check(SQLSetPos(statement_, row_ + 1, SQL_POSITION, SQL_LOCK_NO_CHANGE), statement_);
        isPlaced_ = true;
    }
    if ((session_.Traits().getDataExtensions & SQL_GD_ANY_ORDER) == 0) {
        for (std::int32_t i = 0; i < column; ++i) {
            if (!columns_[Index(i)].IsBound() && !fetched_[Index(i)].isThere) FetchCell(i);
        }
    }
    FetchCell(column);
    return wanted;
}

void OdbcRows::Keep(Fetched& cell, std::string_view bytes) {
    if (!cell.spooled && cell.memory.size() + bytes.size() <= kKeptInMemory) {
        cell.memory += bytes;
        return;
    }
    if (!cell.spooled) {
        cell.spooled = std::make_unique<SpooledBytes>();
        cell.spooled->Append(
            std::span(reinterpret_cast<const std::uint8_t*>(cell.memory.data()), cell.memory.size()));
        cell.memory = {};
    }
    cell.spooled->Append(std::span(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()));
}

void OdbcRows::FetchCell(std::int32_t column) {
    const auto& about = columns_[Index(column)];
    auto& cell = fetched_[Index(column)];
    piece_.resize(kPieceSize);
    WideTextReader reader;
    std::string text;
    const std::size_t room = kPieceSize - TerminatorSize(about.form);
    for (bool isFirst = true;; isFirst = false) {
        SQLLEN length = 0;
        const auto status = session_.Wait(statement_, [&] {
            return SQLGetData(statement_, static_cast<SQLUSMALLINT>(column + 1), about.cType, piece_.data(),
                              static_cast<SQLLEN>(kPieceSize), &length);
        });
        if (status == SQL_NO_DATA) break;
        session_.Check(status, statement_);
        if (length == SQL_NULL_DATA) {
            cell.isNull = isFirst;
            break;
        }
        // The length is what was left before this call, or is not known; a full piece may not be the last.
        const bool isCut = length < 0 || static_cast<std::size_t>(length) > room;
        const std::string_view bytes(piece_.data(), isCut ? room : static_cast<std::size_t>(length));
        if (about.form == OdbcForm::WideText) {
            text.clear();
            reader.Append(text, AsWide(bytes));
            Keep(cell, text);
        } else {
            Keep(cell, bytes);
        }
        if (!isCut || status == SQL_SUCCESS) break;
    }
    text.clear();
    reader.Finish(text);
    Keep(cell, text);
    cell.isThere = true;
}

}  // namespace halvtiv::ado
