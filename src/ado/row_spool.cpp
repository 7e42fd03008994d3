#include "ado/row_spool.hpp"

#include <algorithm>
#include <cstring>
#include <utility>

#include <halvtiv/ado.hpp>

#include "ado/errors.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::size_t kPieceSize = 65536;

constexpr std::size_t Index(std::int32_t column) noexcept {
    return static_cast<std::size_t>(column);
}

template <typename Number>
std::string_view BytesOf(const Number& number) {
    return {reinterpret_cast<const char*>(&number), sizeof number};
}

template <typename Number>
Number NumberIn(std::string_view bytes) {
    Number number;
    std::memcpy(&number, bytes.data(), sizeof number);
    return number;
}

// What is kept of a value that is not long.
std::string_view BytesOf(const CellValue& value) {
    if (value.kind == CellKind::Integer) return BytesOf(value.integer);
    if (value.kind == CellKind::Double) return BytesOf(value.number);
    return value.text;
}

constexpr bool HasBytes(CellKind kind) noexcept {
    return kind == CellKind::Text || kind == CellKind::Blob;
}

}  // namespace

// A row in the store: what the cells are and how much is kept of each, the values of the columns that are not
// long, one after another, and then the long ones.

RowSpool::RowSpool(std::span<const ColumnInfo> columns, std::int32_t width,
                   std::shared_ptr<DeferredValues> deferred, std::size_t memoryBound)
    : deferred_(std::move(deferred)),
      memoryBound_(memoryBound),
      cells_(std::max(columns.size(), Index(width))),
      offsets_(cells_.size()) {
    for (const auto& column : columns) {
        const bool isLong = (column.attributes & adFldLong) != 0;
        isLong_.push_back(isLong && !IsDeferred(static_cast<std::int32_t>(types_.size())));
        types_.push_back(column.type);
    }
    isLong_.resize(cells_.size());
    types_.resize(cells_.size());
    for (std::size_t i = 0; i < cells_.size(); ++i) columns_.push_back(static_cast<std::int32_t>(i));
}

bool RowSpool::IsDeferred(std::int32_t column) const {
    return deferred_ && deferred_->Holds(column);
}

bool RowSpool::IsKeptApart(std::size_t column) const {
    return isLong_[column] && HasBytes(cells_[column].kind);
}

void RowSpool::Append(RowSource& row) {
    short_.clear();
    stored_.clear();
    for (const auto column : columns_) {
        auto& cell = stored_.emplace_back();
        if (isLong_[Index(column)]) {
            if (!row.IsNull(column)) cell = {CellKind::Blob, row.Size(column)};
            continue;
        }
        const auto value = row.Value(column);
        cell.kind = value.kind;
        if (value.kind == CellKind::Null || (HasBytes(value.kind) && IsDeferred(column))) continue;
        const auto bytes = BytesOf(value);
        cell.size = static_cast<std::int64_t>(bytes.size());
        short_ += bytes;
    }
    Store({reinterpret_cast<const char*>(stored_.data()), stored_.size() * sizeof(Cell)});
    Store(short_);
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        if (isLong_[Index(columns_[i])]) StoreLong(row, columns_[i], stored_[i].size);
    }
    rowsEnd_ = nextRow_ = size_;
}

void RowSpool::StoreLong(RowSource& row, std::int32_t column, std::int64_t size) {
    std::vector<std::uint8_t> piece(kPieceSize);
    for (std::int64_t offset = 0; offset < size;) {
        const auto count = row.Read(column, offset, piece);
        if (count == 0) RaiseAdoError(AdoError::Unspecified);
        Store({reinterpret_cast<const char*>(piece.data()), count});
        offset += static_cast<std::int64_t>(count);
    }
}

bool RowSpool::Next() {
    if (nextRow_ == rowsEnd_) return false;
    stored_.resize(columns_.size());
    Load(nextRow_, stored_.data(), stored_.size() * sizeof(Cell));
    nextRow_ += stored_.size() * sizeof(Cell);

    std::uint64_t shortSize = 0;
    for (std::size_t i = 0; i < columns_.size(); ++i) {
        const auto column = Index(columns_[i]);
        cells_[column] = stored_[i];
        if (isLong_[column]) continue;
        offsets_[column] = shortSize;
        shortSize += static_cast<std::uint64_t>(stored_[i].size);
    }
    short_.resize(shortSize);
    Load(nextRow_, short_.data(), short_.size());
    nextRow_ += shortSize;

    for (const auto kept : columns_) {
        const auto column = Index(kept);
        if (!isLong_[column]) continue;
        offsets_[column] = nextRow_;
        nextRow_ += static_cast<std::uint64_t>(cells_[column].size);
    }
    return true;
}

bool RowSpool::IsNull(std::int32_t column) {
    return cells_[Index(column)].kind == CellKind::Null;
}

CellValue RowSpool::Value(std::int32_t column) {
    const auto i = Index(column);
    const auto kind = cells_[i].kind;
    CellValue value;
    value.kind = kind;
    if (IsKeptApart(i)) {
        value.text = ReadWholeValue(*this, column, wholeValue_);
        return value;
    }
    const auto bytes = std::string_view(short_).substr(offsets_[i], static_cast<std::size_t>(cells_[i].size));
    if (kind == CellKind::Integer) value.integer = NumberIn<std::int64_t>(bytes);
    if (kind == CellKind::Double) value.number = NumberIn<double>(bytes);
    if (HasBytes(kind)) value.text = bytes;
    return value;
}

std::string_view RowSpool::Text(std::int32_t column) {
    const auto i = Index(column);
    if (HasBytes(cells_[i].kind) && IsDeferred(column)) return ReadWholeValue(*this, column, wholeValue_);
    return CellText(Value(column), types_[i], buffer_);
}

std::int64_t RowSpool::Size(std::int32_t column) {
    const auto i = Index(column);
    if (IsKeptApart(i)) return cells_[i].size;
    if (HasBytes(cells_[i].kind) && IsDeferred(column)) return deferred_->Size(*this, column);
    return static_cast<std::int64_t>(Text(column).size());
}

std::size_t RowSpool::Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) {
    const auto i = Index(column);
    if (HasBytes(cells_[i].kind) && IsDeferred(column)) return deferred_->Read(*this, column, offset, piece);
    if (!IsKeptApart(i)) return CopyPiece(Text(column), offset, piece);
    const auto left = std::max<std::int64_t>(Size(column) - offset, 0);
    const auto count = std::min(piece.size(), static_cast<std::size_t>(left));
    if (count > 0) Load(offsets_[i] + static_cast<std::uint64_t>(offset), piece.data(), count);
    return count;
}

// What memory has no room for, and everything after it, goes to the file.
void RowSpool::Store(std::string_view bytes) {
    if (!file_ && memory_.size() + bytes.size() > memoryBound_) file_.emplace();
    if (file_) {
        file_->Append(bytes);
    } else {
        memory_ += bytes;
    }
    size_ += bytes.size();
}

void RowSpool::Load(std::uint64_t offset, void* bytes, std::size_t count) {
    auto* out = static_cast<char*>(bytes);
    if (offset < memory_.size()) {
        const auto inMemory = std::min<std::size_t>(count, memory_.size() - offset);
        std::memcpy(out, memory_.data() + offset, inMemory);
        out += inMemory;
        offset += inMemory;
        count -= inMemory;
    }
    if (count > 0) file_->Read(offset - memory_.size(), out, count);
}

}  // namespace halvtiv::ado
