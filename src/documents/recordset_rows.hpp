#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "ado/provider.hpp"
#include "foundation/err_object.hpp"
#include "platform/text_buffer.hpp"

namespace halvtiv {

/// Writes the rows of a recordset as the rows of an entry, straight into text.
class RecordsetRows {
public:
    /// dataFolder: completed with its separator, or empty; errors receives why a cell's file was not written.
    /// Both must live as long as this object.
    RecordsetRows(std::span<const ado::ColumnInfo> columns, std::string_view dataFolder,
                  clsZorbErrObject& errors);

    /// Appends row 0: the columns' names and data types.
    void AppendHeader(platform::TextBuffer& xml) const;
    /// Appends the current row under a number from 1.
    void AppendRow(platform::TextBuffer& xml, ado::RowSource& row, std::int64_t index) const;

private:
    struct Column {
        std::size_t opening;  // where in openings_ the cell's markup up to its value begins
        std::size_t size;
        bool isBlob;
    };
    std::string_view Opening(const Column& column) const {
        return openings_.View(column.opening, column.size);
    }
    void AppendBlobCell(platform::TextBuffer& xml, ado::RowSource& row, std::int32_t column,
                        std::int64_t index) const;

    std::span<const ado::ColumnInfo> infos_;
    platform::TextBuffer openings_;
    std::vector<Column> columns_;
    std::string_view dataFolder_;
    clsZorbErrObject& errors_;
};

}  // namespace halvtiv
