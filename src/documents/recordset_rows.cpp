#include "documents/recordset_rows.hpp"

#include <algorithm>
#include <string>
#include <typeinfo>
#include <vector>

#include "ado/errors.hpp"
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
    [[maybe_unused]] const bool repaired =
        platform::AppendXmlAttributeValue(xml, platform::RepairXmlText(text));
    return false;
}

}  // namespace

/// The markup that is the same for every row, and row 0.
class EntryLayout final : public ado::RowLayout {
public:
    struct Column {
        std::string_view opening;  // the cell's markup up to its value
        std::string_view joined;   // the end of a plain cell before it, and the opening
        bool isBlob;
    };

    explicit EntryLayout(std::span<const ado::ColumnInfo> infos)
        : header_(infos.empty() ? "<row index=\"0\"/>" : "<row index=\"0\">") {
        for (const ado::ColumnInfo& info : infos) {
            const std::size_t start = openings_.BeginRun();
            openings_.Append(kCellEnd);
            openings_.Append("<col name=\"");
            AppendAttributeText(openings_, platform::ToLower(info.name));
            openings_.Append("\" value=\"");
            const std::string_view joined = openings_.View(start, openings_.Size() - start);
            const std::string_view opening = joined.substr(kCellEnd.size());
            const bool isBlob = IsBlobField(info.type);
            header_ += opening;
            header_ += DataTypeText(AdoTypeToDataType(info.type));
            header_ += isBlob ? kFileCellEnd : kCellEnd;
            columns_.push_back({opening, joined, isBlob});
        }
        if (!infos.empty()) header_ += "</row>";
    }

    std::string_view Header() const noexcept { return header_; }
    std::span<const Column> Columns() const noexcept { return columns_; }

private:
    TextBuffer openings_;
    std::vector<Column> columns_;
    std::string header_;
};

RecordsetRows::RecordsetRows(ado::RecordsetState& recordset, std::string_view dataFolder,
                             clsZorbErrObject& errors)
    : recordset_(recordset), infos_(recordset.Columns()), dataFolder_(dataFolder), errors_(errors) {
    std::shared_ptr<const ado::RowLayout>& kept = recordset.Layout();
    if (kept && typeid(*kept) == typeid(EntryLayout)) {
        layout_ = std::static_pointer_cast<const EntryLayout>(kept);
    } else {
        layout_ = std::make_shared<EntryLayout>(infos_);
        kept = layout_;
    }
}

std::size_t RecordsetRows::UsualSize() const {
    constexpr std::size_t kValues = 512;
    constexpr std::size_t kEnough = 4096;  // more is got when it is needed
    return std::min(2 * layout_->Header().size() + kValues, kEnough);
}

void RecordsetRows::AppendHeader(TextBuffer& xml) const {
    xml.BeginRun();
    xml.Append(layout_->Header());
}

void RecordsetRows::AppendRow(TextBuffer& xml, ado::RowSource& row, std::int64_t index) const {
    char number[platform::kNumberTextSize];
    xml.BeginRun();
    xml.Append("<row index=\"");
    xml.Append(platform::IntegerText(index, number));
    xml.Append("\">");
    std::int32_t at = 0;
    bool isOpen = false;  // the cell before still lacks its end
    for (const EntryLayout::Column& column : layout_->Columns()) {
        xml.Append(isOpen ? column.joined : column.opening);
        isOpen = false;
        if (column.isBlob) {
            AppendBlobCell(xml, row, at, index);
        } else if (AppendAttributeText(xml, row.Text(at))) {
            isOpen = true;
        } else {
            xml.Append(kErrorCellEnd);
        }
        ++at;
    }
    xml.Append(isOpen ? "\"/></row>" : "</row>");
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
        WriteFieldToFile(recordset_, row, column, dataFolder_, fileName);
        written = true;
    } catch (const ErrorInfo& error) {
        if (ado::IsCancelled(error)) throw;
        errors_.SetError(&error);  // the cell tells, and the other cells go on
    } catch (...) {
        errors_.SetError(nullptr);
    }
    AppendAttributeText(xml, fileName);
    xml.Append(written ? kFileCellEnd : kErrorCellEnd);
}

}  // namespace halvtiv
