#include "ado/row_editor.hpp"

#include <algorithm>
#include <utility>

#include "ado/errors.hpp"

namespace halvtiv::ado {
namespace {

std::size_t Index(std::int32_t column) noexcept {
    return static_cast<std::size_t>(column);
}

}  // namespace

RowEditor::RowEditor(Session& session, const ChangeTarget& target, std::span<const ColumnInfo> columns,
                     RowSource* below)
    : session_(session), target_(target), columns_(columns), below_(below), isNew_(below == nullptr) {}

const ChangeTarget::Column& RowEditor::RequireColumn(std::int32_t column) const {
    const auto& known = target_.columns[Index(column)];
    if (known.table < 0) RaiseAdoError(AdoError::NotSupported);
    return known;
}

void RowEditor::Assign(std::int32_t column, const Variant& value) {
    RequireColumn(column);
    pending_[column] = {CellForColumn(value, columns_[Index(column)].type), nullptr};
}

void RowEditor::AssignSum(std::int32_t column, const Variant& value) {
    Assign(column, value);
    pending_[column].isSum = true;
}

void RowEditor::AssignNumber(std::int32_t column, const Variant& value) {
    RequireColumn(column);
    pending_[column] = {NumberCell(value), nullptr, true};
}

// What is appended to a text column is text, to all others bytes.
CellKind RowEditor::KindOfBytes(std::int32_t column) const {
    const auto type = columns_[Index(column)].type;
    return type == adLongVarWChar || type == adLongVarChar ? CellKind::Text : CellKind::Blob;
}

void RowEditor::AssignSource(std::int32_t column, std::shared_ptr<ByteSource> source) {
    RequireColumn(column);
    Edited edited;
    edited.cell.kind = KindOfBytes(column);
    edited.source = std::move(source);
    pending_[column] = std::move(edited);
}

void RowEditor::AppendChunk(std::int32_t column, std::span<const std::uint8_t> bytes) {
    const auto found = pending_.find(column);
    auto spooled =
        found == pending_.end() ? nullptr : std::dynamic_pointer_cast<SpooledBytes>(found->second.source);
    if (!spooled) {
        spooled = std::make_shared<SpooledBytes>();
        spooled->Append(bytes);
        AssignSource(column, std::move(spooled));
        return;
    }
    spooled->Append(bytes);
}

void RowEditor::Write() {
    if (isNew_ && !written_) {
        Insert();
    } else if (!pending_.empty()) {
        Update();
    }
    for (auto& [column, edited] : pending_) values_[column] = std::move(edited);
    pending_.clear();
}

const ChangeTarget::Table& RowEditor::ChangedTable() const {
    if (pending_.empty()) {
        if (target_.tables.size() != 1) RaiseAdoError(AdoError::NotSupported);
        return target_.tables.front();
    }
    const auto table = RequireColumn(pending_.begin()->first).table;
    for (const auto& [column, edited] : pending_) {
        if (target_.columns[Index(column)].table != table) RaiseAdoError(AdoError::NotSupported);
    }
    return target_.tables[Index(table)];
}

namespace {

Parameter MakeParameter(std::string_view name, CellValue value, ByteSource* source = nullptr) {
    return {name, value, source, false};
}

}  // namespace

void RowEditor::Insert() {
    RowChange change;
    change.kind = RowChange::Kind::Insert;
    change.table = &ChangedTable();
    for (const auto& [column, edited] : pending_) {
        change.values.push_back(
            MakeParameter(target_.columns[Index(column)].name, edited.cell.View(), edited.source.get()));
    }
    const auto result = session_.Change(change);
    written_ = true;
    if (result.affectedRows == 0) {  // a trigger or a conflict clause has left the row out
        keyIsKnown_ = false;
        return;
    }
    for (const auto& part : change.table->key) {
        if (pending_.contains(part.column)) continue;
        if (result.newKey) {
            values_[part.column] = {{CellKind::Integer, *result.newKey, 0, {}}, nullptr};
        } else {
            keyIsKnown_ = false;
        }
    }
}

void RowEditor::Update() {
    RowChange change;
    change.kind = RowChange::Kind::Update;
    change.table = &ChangedTable();
    for (const auto& [column, edited] : pending_) {
        change.values.push_back(
            MakeParameter(target_.columns[Index(column)].name, edited.cell.View(), edited.source.get()));
    }
    change.undoneByCaller = undoneTogether_;
    AppendConditions(change, true);
    if (session_.Change(change).affectedRows == 0) RaiseAdoError(AdoError::RowChanged);
    // The key that was added to the row follows a change of the column behind it.
    for (const auto& [column, edited] : pending_) {
        if (target_.columns[Index(column)].name != change.table->keyAlias) continue;
        if (edited.cell.kind == CellKind::Integer) {
            values_[change.table->key.front().column] = {edited.cell, nullptr};
        } else {
            keyIsKnown_ = false;
        }
    }
}

void RowEditor::Delete() {
    if (target_.tables.size() != 1) RaiseAdoError(AdoError::NotSupported);
    RowChange change;
    change.kind = RowChange::Kind::Delete;
    change.table = &target_.tables.front();
    AppendConditions(change, false);
    if (session_.Change(change).affectedRows == 0) RaiseAdoError(AdoError::RowChanged);
}

void RowEditor::AppendConditions(RowChange& change, bool withOldValues) {
    if (change.table->key.empty() || (isNew_ && !written_)) RaiseAdoError(AdoError::NotSupported);
    if (!keyIsKnown_) RaiseAdoError(AdoError::RowChanged);
    for (const auto& part : change.table->key) {
        // No row has it: an outer join found none; or the table lets several rows have it.
        const auto value = WrittenValue(part.column);
        if (value.kind == CellKind::Null) RaiseAdoError(AdoError::RowChanged);
        change.conditions.push_back(MakeParameter(part.name, value));
    }
    if (!withOldValues) return;
    for (const auto& [column, edited] : pending_) {
        const bool isKey = std::any_of(change.table->key.begin(), change.table->key.end(),
                                       [&, at = column](const auto& part) { return part.column == at; });
        if (isKey || !HasComparableValue(column, edited.isSum)) continue;
        const auto& known = target_.columns[Index(column)];
        auto condition = MakeParameter(known.name, WrittenValue(column));
        condition.nullTest = known.nullTest;
        condition.isOldText = IsTextType(columns_[Index(column)].type);
        change.conditions.push_back(condition);
    }
}

// Long values are not looked at again, and floating ones need not be equal to themselves as text. Where they
// are, an addition looks at them: it would undo somebody else's.
bool RowEditor::HasComparableValue(std::int32_t column, bool isSum) {
    if (isNew_ && !values_.contains(column)) return false;
    const auto& known = target_.columns[Index(column)];
    const auto& info = columns_[Index(column)];
    if (!known.isComparable || (info.attributes & adFldLong) != 0) return false;
    if (isSum && known.comparesFloats) return true;
    if (info.type == adDouble || info.type == adSingle) return false;
    return WrittenValue(column).kind != CellKind::Double;
}

CellValue RowEditor::WrittenValue(std::int32_t column) {
    const auto found = values_.find(column);
    if (found != values_.end()) return found->second.cell.View();
    return below_ ? below_->Value(column) : CellValue{};
}

const RowEditor::Edited* RowEditor::Find(std::int32_t column) const {
    if (const auto found = pending_.find(column); found != pending_.end()) return &found->second;
    if (const auto found = values_.find(column); found != values_.end()) return &found->second;
    return nullptr;
}

bool RowEditor::IsNull(std::int32_t column) {
    if (const auto* edited = Find(column)) return edited->cell.kind == CellKind::Null;
    return !below_ || below_->IsNull(column);
}

CellValue RowEditor::Value(std::int32_t column) {
    const auto* edited = Find(column);
    if (!edited) return below_ ? below_->Value(column) : CellValue{};
    CellValue value = edited->cell.View();
    if (edited->source) value.text = Text(column);
    return value;
}

std::string_view RowEditor::Text(std::int32_t column) {
    const auto* edited = Find(column);
    if (!edited) return below_ ? below_->Text(column) : std::string_view();
    if (!edited->source) return CellText(edited->cell.View(), columns_[Index(column)].type, buffer_);
    longText_.resize(static_cast<std::size_t>(edited->source->Size()));
    edited->source->Read(0, std::span(reinterpret_cast<std::uint8_t*>(longText_.data()), longText_.size()));
    return longText_;
}

std::int64_t RowEditor::Size(std::int32_t column) {
    const auto* edited = Find(column);
    if (!edited) return below_ ? below_->Size(column) : 0;
    return edited->source ? edited->source->Size() : static_cast<std::int64_t>(Text(column).size());
}

std::size_t RowEditor::Read(std::int32_t column, std::int64_t offset, std::span<std::uint8_t> piece) {
    const auto* edited = Find(column);
    if (!edited) return below_ ? below_->Read(column, offset, piece) : 0;
    if (!edited->source) return CopyPiece(Text(column), offset, piece);
    const auto left = std::max<std::int64_t>(Size(column) - offset, 0);
    const auto count = std::min(piece.size(), static_cast<std::size_t>(left));
    if (count > 0) edited->source->Read(offset, piece.first(count));
    return count;
}

}  // namespace halvtiv::ado
