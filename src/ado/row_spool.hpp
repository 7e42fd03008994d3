#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ado/cell_text.hpp"
#include "ado/provider.hpp"
#include "platform/spool_file.hpp"

namespace halvtiv::ado {

/// Rows kept in the order in which they came, to be read again from the first on: in memory up to a bound,
/// then in a temporary file.
///
/// Either appended to or read: `Append` first, then `Rewind` and `Next`, then `Append` again after the last
/// row.
class RowSpool final : public RowSource {
public:
    static constexpr std::size_t kMemoryBound = std::size_t{16} * 1024 * 1024;

    /// width counts the columns of a row with those behind `columns` that nobody sees. The deferred values,
    /// if there are any, stay where they are and are read by the key in the row kept. memoryBound in bytes.
    RowSpool(std::span<const ColumnInfo> columns, std::int32_t width,
             std::shared_ptr<DeferredValues> deferred, std::size_t memoryBound = kMemoryBound);

    /// Keeps only these columns; the others are null in the rows that come out. Before the first row.
    void KeepOnly(std::vector<std::int32_t> columns) { columns_ = std::move(columns); }
    /// Keeps a column as it stands even where it is a long one, as a row's key has to be. Before the first
    /// row.
    void KeepAsItStands(std::int32_t column) { isLong_[static_cast<std::size_t>(column)] = false; }
    /// Keeps the row that is current there. Long columns are copied piece by piece.
    void Append(RowSource& row);
    /// Stands before the first row.
    void Rewind() noexcept { nextRow_ = 0; }
    bool Empty() const noexcept { return rowsEnd_ == 0; }

    bool Next() override;
    bool IsNull(std::int32_t column) override;
    CellValue Value(std::int32_t column) override;
    std::string_view Text(std::int32_t column) override;
    std::int64_t Size(std::int32_t column) override;
    std::size_t Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) override;

private:
    struct Cell {
        CellKind kind = CellKind::Null;
        std::int64_t size = 0;  // bytes kept
    };

    void Store(std::string_view bytes);
    void StoreLong(RowSource& row, std::int32_t column, std::int64_t size);
    void Load(std::uint64_t offset, void* bytes, std::size_t count);
    bool IsDeferred(std::int32_t column) const;
    /// Whether the cell's bytes lie behind those of the short ones.
    bool IsKeptApart(std::size_t column) const;

    std::vector<std::int32_t> columns_;  // those that are kept, in the order in which they are
    std::vector<std::int32_t> types_;    // of the visible columns
    std::vector<bool> isLong_;           // not so where they are deferred
    std::shared_ptr<DeferredValues> deferred_;
    std::size_t memoryBound_;
    // The store: one run of bytes whose front is in memory and whose rest is in the file.
    std::string memory_;
    std::optional<platform::SpoolFile> file_;
    std::uint64_t size_ = 0;
    std::uint64_t rowsEnd_ = 0;  // behind the last row that is complete
    std::uint64_t nextRow_ = 0;

    // The row that is read or written.
    std::vector<Cell> stored_;            // of the columns that are kept
    std::vector<Cell> cells_;             // of all
    std::vector<std::uint64_t> offsets_;  // in `short_`, or in the store for a long column
    std::string short_;                   // the values of the columns that are not long
    std::string wholeValue_;              // a long column's, when it is asked for as a whole
    CellBuffer buffer_;
};

}  // namespace halvtiv::ado
