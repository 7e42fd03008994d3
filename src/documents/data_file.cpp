#include "documents/data_file.hpp"

#include <halvtiv/output_file.hpp>

#include "documents/item_xml.hpp"
#include "documents/recordset_rows.hpp"

namespace halvtiv {

namespace {

constexpr std::size_t kPiece = 64 * 1024;

void MoveToFile(platform::TextBuffer& xml, OutputFile& file) {
    xml.ForEachPiece([&file](std::string_view piece) { file.Write(piece); });
    xml.Clear();
}

}  // namespace

void WriteDataFile(std::string_view fileName, const ResultEntry& entry, ado::RecordsetState& recordset,
                   std::string_view dataFolder, clsZorbErrObject& errors) {
    recordset.RequireOtherFile(fileName);
    const RecordsetRows rows(recordset, dataFolder, errors);
    OutputFile file(fileName);
    platform::TextBuffer xml(2 * kPiece);  // a piece and a row of usual size
    xml.Append("<data");
    for (const auto& [name, value] : entry.attributes) AppendAttribute(xml, name, value);
    xml.Append(">");
    rows.AppendHeader(xml);
    for (std::int64_t index = 1; !recordset.AtEnd(); ++index) {
        recordset.ReadRow([&](ado::RowSource& row) { rows.AppendRow(xml, row, index); });
        if (xml.Size() >= kPiece) MoveToFile(xml, file);
        recordset.MoveNext();
    }
    xml.Append("</data>");
    MoveToFile(xml, file);
    file.Commit();
}

}  // namespace halvtiv
