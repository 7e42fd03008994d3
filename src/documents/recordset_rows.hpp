#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include "ado/recordset_state.hpp"
#include "foundation/err_object.hpp"
#include "platform/text_buffer.hpp"

namespace halvtiv {

/// Writes the rows of a recordset as the rows of an entry, straight into text.
class RecordsetRows {
public:
    /// dataFolder: completed with its separator, or empty; errors receives why a cell's file was not written.
    /// All three must live as long as this object.
    RecordsetRows(ado::RecordsetState& recordset, std::string_view dataFolder, clsZorbErrObject& errors);

    /// Bytes that hold the header and a row of usual values.
    std::size_t UsualSize() const;
    /// Appends row 0: the columns' names and data types.
    void AppendHeader(platform::TextBuffer& xml) const;
    /// Appends the current row under a number from 1.
    void AppendRow(platform::TextBuffer& xml, ado::RowSource& row, std::int64_t index) const;

private:
    void AppendBlobCell(platform::TextBuffer& xml, ado::RowSource& row, std::int32_t column,
                        std::int64_t index) const;

    const ado::RecordsetState& recordset_;
    std::span<const ado::ColumnInfo> infos_;
    std::shared_ptr<const class EntryLayout> layout_;
    std::string_view dataFolder_;
    clsZorbErrObject& errors_;
};

}  // namespace halvtiv
