#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ado/cell_text.hpp"
#include "ado/owned_cell.hpp"
#include "ado/provider.hpp"
#include "ado/spooled_bytes.hpp"

namespace halvtiv::ado {

/// The current row of an updatable recordset while it is changed: a row as it was read, or none for a new
/// one, with the values that have been assigned since over it.
class RowEditor final : public RowSource {
public:
    /// below: the row as it was read, null for a new one; it must not move while this object lives. All else
    /// lives longer, too.
    RowEditor(Session& session, const ChangeTarget& target, std::span<const ColumnInfo> columns,
              RowSource* below);

    // What `Field` does. Each raises -2146825037 for a column that cannot be changed.
    void Assign(std::int32_t column, const Variant& value);
    /// A value that was made of the old one: the row is changed only if it still holds that.
    void AssignSum(std::int32_t column, const Variant& value);
    /// A sum as the number that it is, whatever the column's type.
    void AssignNumber(std::int32_t column, const Variant& value);
    void AssignSource(std::int32_t column, std::shared_ptr<ByteSource> source);
    void AppendChunk(std::int32_t column, std::span<const std::uint8_t> bytes);

    /// A failure of `Write` need not undo the row's change: the caller does.
    void UndoneTogether() noexcept { undoneTogether_ = true; }

    bool IsNew() const noexcept { return isNew_; }
    /// Whether there is anything that `Write` would write; a new row always has.
    bool HasChanges() const noexcept { return !pending_.empty() || (isNew_ && !written_); }
    /// Inserts or updates. When it fails, the assigned values stay assigned.
    void Write();
    /// Deletes the row.
    void Delete();

    // The row as it is now, for the columns that the recordset shows and for the key's.
    bool Next() override { return false; }
    bool IsNull(std::int32_t column) override;
    CellValue Value(std::int32_t column) override;
    std::string_view Text(std::int32_t column) override;
    std::int64_t Size(std::int32_t column) override;
    std::size_t Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) override;

private:
    struct Edited {
        OwnedCell cell;
        std::shared_ptr<ByteSource> source;  // where set, the value's bytes
        bool isSum = false;                  // made of the value that it replaces
    };
    using EditedCells = std::map<std::int32_t, Edited>;

    const ChangeTarget::Column& RequireColumn(std::int32_t column) const;
    /// The table to which all assigned columns belong; raises where there is no single one.
    const ChangeTarget::Table& ChangedTable() const;
    CellValue WrittenValue(std::int32_t column);
    bool HasComparableValue(std::int32_t column, bool isSum);
    /// Says by which key, and by which old values, the row is found.
    void AppendConditions(RowChange& change, bool withOldValues);
    void Insert();
    void Update();
    const Edited* Find(std::int32_t column) const;
    CellKind KindOfBytes(std::int32_t column) const;

    Session& session_;
    const ChangeTarget& target_;
    std::span<const ColumnInfo> columns_;
    RowSource* below_;
    bool isNew_;
    bool undoneTogether_ = false;
    bool written_ = false;    // a new row that is in the database
    bool keyIsKnown_ = true;  // false after a change that may have given the row another key
    EditedCells pending_;     // assigned since the last `Write`
    EditedCells values_;      // in the database by now, unlike those of the row below
    CellBuffer buffer_;
    std::string longText_;
};

}  // namespace halvtiv::ado
