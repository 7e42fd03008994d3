#pragma once

#include <span>
#include <string>
#include <string_view>

namespace halvtiv::cli {

/// One cell of a result's row. In a header the value is the column's type.
struct ResultCell {
    std::string name;
    std::string value;
};

/// What a result document holds, told entry by entry and row by row. Spans and texts live only during the
/// call.
class ResultVisitor {
public:
    virtual ~ResultVisitor() = default;
    /// type is "data", "file", "error" or "info".
    virtual void BeginEntry(std::string_view guid, std::string_view type) = 0;
    /// The column header of a data entry: once, before its rows.
    virtual void Header(std::span<const ResultCell> columns) = 0;
    /// One record of a data entry.
    virtual void Row(std::span<const ResultCell> cells) = 0;
    /// The cells of an error, information or file entry; not called for a file that was never written.
    virtual void Cells(std::span<const ResultCell> cells) = 0;
    virtual void EndEntry() = 0;
};

/// Tells a result document to the visitor; memory is that of one row. Raises `CommandError` (failed) for a
/// text that is no XML.
void ReadResult(std::string_view xml, ResultVisitor& visitor);

/// Whether a result of the engine holds an error entry; looks at the text only, without reading the rows.
bool HoldsErrorEntry(std::string_view xml);

/// How many cells of a result of the engine are marked as errors: their file was not written, or their text
/// holds what XML cannot carry. Looks at the text only.
std::size_t CountErrorCells(std::string_view xml);

/// Whether a column of that type holds numbers.
inline bool IsNumberType(std::string_view type) {
    return type == "integer" || type == "double";
}

}  // namespace halvtiv::cli
