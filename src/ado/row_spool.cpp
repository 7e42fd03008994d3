#include "ado/row_spool.hpp"

#include <algorithm>
#include <cstring>

#include <halvtiv/ado.hpp>

#include "ado/errors.hpp"

namespace halvtiv::ado {
namespace {

constexpr std::size_t kPieceSize = 65536;

constexpr std::size_t Index(std::int32_t column) noexcept {
    return static_cast<std::size_t>(column);
}

}  // namespace

// A row in the store: the sizes of its cells, the texts of the columns that are not long, one after another,
// and then the long ones.

RowSpool::RowSpool(std::span<const ColumnInfo> columns, std::size_t memoryBound)
    : memoryBound_(memoryBound), sizes_(columns.size()), offsets_(columns.size()) {
    for (const auto& column : columns) isLong_.push_back((column.attributes & adFldLong) != 0);
}

void RowSpool::Append(RowSource& row) {
    short_.clear();
    sizes_.assign(sizes_.size(), -1);
    for (std::size_t i = 0; i < sizes_.size(); ++i) {
        const auto column = static_cast<std::int32_t>(i);
        if (row.IsNull(column)) continue;
        if (isLong_[i]) {
            sizes_[i] = row.Size(column);
            continue;
        }
        const auto text = row.Text(column);
        sizes_[i] = static_cast<std::int64_t>(text.size());
        short_ += text;
    }
    Store({reinterpret_cast<const char*>(sizes_.data()), sizes_.size() * sizeof(std::int64_t)});
    Store(short_);
    std::vector<std::uint8_t> piece;
    for (std::size_t i = 0; i < sizes_.size(); ++i) {
        if (!isLong_[i]) continue;
        piece.resize(kPieceSize);
        for (std::int64_t offset = 0; offset < sizes_[i];) {
            const auto count = row.Read(static_cast<std::int32_t>(i), offset, piece);
            if (count == 0) RaiseAdoError(AdoError::Unspecified);
            Store({reinterpret_cast<const char*>(piece.data()), count});
            offset += static_cast<std::int64_t>(count);
        }
    }
    rowsEnd_ = nextRow_ = size_;
}

bool RowSpool::Next() {
    if (nextRow_ == rowsEnd_) return false;
    Load(nextRow_, sizes_.data(), sizes_.size() * sizeof(std::int64_t));
    nextRow_ += sizes_.size() * sizeof(std::int64_t);

    std::uint64_t shortSize = 0;
    for (std::size_t i = 0; i < sizes_.size(); ++i) {
        if (isLong_[i]) continue;
        offsets_[i] = shortSize;
        shortSize += static_cast<std::uint64_t>(std::max<std::int64_t>(sizes_[i], 0));
    }
    short_.resize(shortSize);
    Load(nextRow_, short_.data(), short_.size());
    nextRow_ += shortSize;

    for (std::size_t i = 0; i < sizes_.size(); ++i) {
        if (!isLong_[i]) continue;
        offsets_[i] = nextRow_;
        nextRow_ += static_cast<std::uint64_t>(std::max<std::int64_t>(sizes_[i], 0));
    }
    return true;
}

bool RowSpool::IsNull(std::int32_t column) {
    return sizes_[Index(column)] < 0;
}

std::string_view RowSpool::Text(std::int32_t column) {
    const auto i = Index(column);
    const auto size = static_cast<std::size_t>(Size(column));
    if (!isLong_[i]) return std::string_view(short_).substr(offsets_[i], size);
    longText_.resize(size);
    Load(offsets_[i], longText_.data(), size);
    return longText_;
}

std::int64_t RowSpool::Size(std::int32_t column) {
    return std::max<std::int64_t>(sizes_[Index(column)], 0);
}

std::size_t RowSpool::Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) {
    const auto i = Index(column);
    const auto left = std::max<std::int64_t>(Size(column) - offset, 0);
    const auto count = std::min(piece.size(), static_cast<std::size_t>(left));
    if (count == 0) return 0;
    const auto from = offsets_[i] + static_cast<std::uint64_t>(offset);
    if (isLong_[i]) {
        Load(from, piece.data(), count);
    } else {
        std::memcpy(piece.data(), short_.data() + from, count);
    }
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
