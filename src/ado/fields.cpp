#include <algorithm>

#include <halvtiv/ado.hpp>

#include "ado/cell_text.hpp"
#include "ado/errors.hpp"
#include "ado/recordset_state.hpp"
#include "platform/run_time_error.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

const ColumnInfo& ColumnOf(const RecordsetState& state, std::int32_t index) {
    return state.Columns()[static_cast<std::size_t>(index)];
}

/// A member's call on the current row.
class RowCall {
public:
    explicit RowCall(RecordsetState& state) : call_(state.BeginCall()) {
        state.RequireOpen();
        row_ = &state.Row();
    }
    RowSource* operator->() const noexcept { return row_; }

private:
    CancelSwitch::Call call_;
    RowSource* row_;
};

}  // namespace

std::int32_t Fields::Count() {
    return static_cast<std::int32_t>(owner_->Columns().size());
}

FieldPtr Fields::Item(std::int32_t index) {
    return owner_->FieldAt(index);
}

FieldPtr Fields::Item(std::string_view name) {
    const auto columns = owner_->Columns();
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const ColumnInfo& column) {
        return platform::EqualIgnoringCase(column.name, name);
    });
    if (found == columns.end()) RaiseAdoError(AdoError::ItemNotFound);
    return owner_->FieldAt(static_cast<std::int32_t>(found - columns.begin()));
}

std::string Field::Name() {
    return ColumnOf(*owner_, index_).name;
}

std::int32_t Field::Type() {
    return ColumnOf(*owner_, index_).type;
}

std::int32_t Field::Attributes() {
    const auto attributes = ColumnOf(*owner_, index_).attributes;
    return owner_->IsUpdatable(index_) ? attributes : attributes & ~adFldUpdatable;
}

std::int64_t Field::DefinedSize() {
    return ColumnOf(*owner_, index_).definedSize;
}

std::int64_t Field::ActualSize() {
    return RowCall(*owner_)->Size(index_);
}

Variant Field::Value() {
    const RowCall row(*owner_);
    if (row->IsNull(index_)) return {};
    return ValueOfCellText(row->Text(index_), Type());
}

void Field::Value(const Variant& value) {
    const auto call = owner_->BeginCall();
    owner_->Edit().Assign(index_, value);
}

void Field::AppendChunk(const Bytes& data) {
    if ((ColumnOf(*owner_, index_).attributes & adFldLong) == 0) RaiseAdoError(AdoError::NotSupported);
    const auto call = owner_->BeginCall();
    owner_->Edit().AppendChunk(index_, data);
}

bool Field::IsNull() {
    return RowCall(*owner_)->IsNull(index_);
}

std::string_view Field::Text() {
    return RowCall(*owner_)->Text(index_);
}

Bytes Field::GetChunk(std::int64_t length) {
    const RowCall row(*owner_);
    if (length < 0) platform::RaiseRunTimeError(platform::RunTimeError::InvalidArgument);
    if (chunkRow_ != owner_->RowSerial()) {
        chunkRow_ = owner_->RowSerial();
        chunkPosition_ = 0;
    }
    const auto left = std::max<std::int64_t>(row->Size(index_) - chunkPosition_, 0);
    Bytes piece(static_cast<std::size_t>(std::min(length, left)));
    std::size_t filled = 0;
    while (filled < piece.size()) {
        const auto count = row->Read(index_, chunkPosition_, std::span(piece).subspan(filled));
        if (count == 0) break;
        filled += count;
        chunkPosition_ += static_cast<std::int64_t>(count);
    }
    piece.resize(filled);
    return piece;
}

}  // namespace halvtiv::ado
