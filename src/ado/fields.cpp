#include <algorithm>
#include <utility>

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

/// Reads the current row as one call on the connection.
template <typename Read>
decltype(auto) ReadOpen(RecordsetState& state, Read&& read) {
    const auto call = state.BeginCall();
    state.RequireOpen();
    return state.ReadRow(std::forward<Read>(read));
}

}  // namespace

std::int32_t FindColumn(std::span<const ColumnInfo> columns, std::string_view name) {
    const auto found = std::find_if(columns.begin(), columns.end(), [&](const ColumnInfo& column) {
        return platform::EqualIgnoringCase(column.name, name);
    });
    return found == columns.end() ? -1 : static_cast<std::int32_t>(found - columns.begin());
}

std::int32_t Fields::Count() {
    return static_cast<std::int32_t>(owner_->Columns().size());
}

FieldPtr Fields::Item(std::int32_t index) {
    return owner_->FieldAt(index);
}

FieldPtr Fields::Item(std::string_view name) {
    return owner_->FieldAt(FindColumn(owner_->Columns(), name));
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
    return ReadOpen(*owner_, [&](RowSource& row) { return row.Size(index_); });
}

Variant Field::Value() {
    if (IsNull()) return {};
    return ValueOfCellText(Text(), Type());
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
    return ReadOpen(*owner_, [&](RowSource& row) { return row.IsNull(index_); });
}

std::string_view Field::Text() {
    return ReadOpen(*owner_, [&](RowSource& row) { return row.Text(index_); });
}

Bytes Field::GetChunk(std::int64_t length) {
    const auto call = owner_->BeginCall();
    const auto size = ActualSize();
    if (length < 0) platform::RaiseRunTimeError(platform::RunTimeError::InvalidArgument);
    if (chunkRow_ != owner_->RowSerial()) {
        chunkRow_ = owner_->RowSerial();
        chunkPosition_ = 0;
    }
    const auto left = std::max<std::int64_t>(size - chunkPosition_, 0);
    Bytes piece(static_cast<std::size_t>(std::min(length, left)));
    std::size_t filled = 0;
    while (filled < piece.size()) {
        const auto count = owner_->ReadRow([&](RowSource& row) {
            return row.Read(index_, chunkPosition_, std::span(piece).subspan(filled));
        });
        if (count == 0) break;
        filled += count;
        chunkPosition_ += static_cast<std::int64_t>(count);
    }
    piece.resize(filled);
    return piece;
}

}  // namespace halvtiv::ado
