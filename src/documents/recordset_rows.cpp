#include "documents/recordset_rows.hpp"

#include "documents/field_file.hpp"
#include "foundation/this_utils.hpp"
#include "platform/number.hpp"
#include "platform/text.hpp"
#include "platform/xml_writer.hpp"

namespace halvtiv {

namespace {

using platform::TextBuffer;

constexpr std::string_view kFileCellEnd = "\" type=\"file\"/>";
constexpr std::string_view kErrorCellEnd = "\" type=\"error\"/>";
constexpr std::string_view kCellEnd = "\"/>";

/// Appends a text out of the database; what XML cannot carry is replaced, and the answer is false then.
bool AppendAttributeText(TextBuffer& xml, std::string_view text) {
    if (platform::AppendXmlAttributeValue(xml, text)) return true;
    return platform::AppendXmlAttributeValue(xml, platform::RepairXmlText(text)) && false;
}

/// Appends a column's name in lower case. Most are plain words, and go in at one sweep.
void AppendLowered(TextBuffer& xml, std::string_view name) {
    char* const to = xml.Reserve(name.size());
    for (std::size_t at = 0; at < name.size(); ++at) {
        const char byte = name[at];
        const bool isCapital = byte >= 'A' && byte <= 'Z';
        if (!isCapital && !(byte >= 'a' && byte <= 'z') && !(byte >= '0' && byte <= '9') && byte != '_') {
            AppendAttributeText(xml, platform::ToLower(name));
            return;
        }
        to[at] = isCapital ? static_cast<char>(byte + ('a' - 'A')) : byte;
    }
    xml.Advance(name.size());
}

}  // namespace

RecordsetRows::RecordsetRows(std::span<const ado::ColumnInfo> columns, std::string_view dataFolder,
                             clsZorbErrObject& errors)
    : infos_(columns), dataFolder_(dataFolder), errors_(errors) {
    columns_.reserve(columns.size());
    openings_ = TextBuffer(64 * columns.size());
    for (const ado::ColumnInfo& info : columns) {
        const std::size_t start = openings_.BeginRun();
        openings_.Append("<col name=\"");
        AppendLowered(openings_, info.name);
        openings_.Append("\" value=\"");
        columns_.push_back({start, openings_.Size() - start, IsBlobField(info.type)});
    }
}

void RecordsetRows::AppendHeader(TextBuffer& xml) const {
    xml.BeginRun();
    if (columns_.empty()) {
        xml.Append("<row index=\"0\"/>");
        return;
    }
    xml.Append("<row index=\"0\">");
    for (std::size_t at = 0; at < columns_.size(); ++at) {
        xml.Append(Opening(columns_[at]));
        xml.Append(DataTypeText(AdoTypeToDataType(infos_[at].type)));
        xml.Append(columns_[at].isBlob ? kFileCellEnd : kCellEnd);
    }
    xml.Append("</row>");
}

void RecordsetRows::AppendRow(TextBuffer& xml, ado::RowSource& row, std::int64_t index) const {
    char number[platform::kNumberTextSize];
    xml.BeginRun();
    xml.Append("<row index=\"");
    xml.Append(platform::IntegerText(index, number));
    xml.Append("\">");
    const auto count = static_cast<std::int32_t>(columns_.size());
    for (std::int32_t at = 0; at < count; ++at) {
        const Column& column = columns_[static_cast<std::size_t>(at)];
        xml.Append(Opening(column));
        if (column.isBlob) {
            AppendBlobCell(xml, row, at, index);
        } else {
            const bool intact = AppendAttributeText(xml, row.Text(at));
            xml.Append(intact ? kCellEnd : kErrorCellEnd);
        }
    }
    xml.Append("</row>");
}

void RecordsetRows::AppendBlobCell(TextBuffer& xml, ado::RowSource& row, std::int32_t column,
                                   std::int64_t index) const {
    if (dataFolder_.empty()) {
        xml.Append("(skipped)");
        xml.Append(kFileCellEnd);
        return;
    }
    const std::string fileName = FieldFileName(infos_[static_cast<std::size_t>(column)].name, index);
    bool written = false;
    try {
        WriteFieldToFile(row, column, infos_[static_cast<std::size_t>(column)], dataFolder_, fileName);
        written = true;
    } catch (...) {
        errors_.SetError(nullptr);  // the cell tells, and the other cells go on
    }
    AppendAttributeText(xml, fileName);
    xml.Append(written ? kFileCellEnd : kErrorCellEnd);
}

}  // namespace halvtiv
