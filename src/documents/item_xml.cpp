#include "documents/item_xml.hpp"

#include <algorithm>

#include <halvtiv/output_file.hpp>

#include "foundation/this_utils.hpp"
#include "foundation/xml_utils.hpp"
#include "platform/run_time_error.hpp"
#include "platform/text.hpp"
#include "platform/xml_writer.hpp"

namespace halvtiv {

ItemView ReadItem(const pugi::xml_node& element) {
    ItemView item;
    item.name = platform::TrimBlanks(GetXmlAttribute(element, "name"));
    item.value = platform::TrimBlanks(GetXmlAttributeOrText(element, "value"));
    item.type = ItemTypeOf(platform::TrimBlanks(GetXmlAttributeOrText(element, "type")));
    item.extra = platform::TrimBlanks(GetXmlAttributeOrText(element, "extra"));
    return item;
}

std::int32_t ItemTypeOf(std::string_view typeName) {
    return typeName.empty() ? QORV_COLUMN_DATA : std::max(ColumnTypeFromName(typeName), 0);
}

void AppendItem(platform::TextBuffer& xml, std::string_view tag, const ZorbColumnDataItem& item,
                WriteExtra extra) {
    xml.Append('<');
    xml.Append(tag);
    AppendAttribute(xml, "name", item.Name);
    AppendAttribute(xml, "value", item.Value);
    if (item.DataType != QORV_COLUMN_DATA) AppendAttribute(xml, "type", ColumnTypeToName(item.DataType));
    if (extra == WriteExtra::Always || !item.ExtraValue.empty())
        AppendAttribute(xml, "extra", item.ExtraValue);
    xml.Append("/>");
}

void AppendAttribute(platform::TextBuffer& xml, std::string_view name, std::string_view value) {
    if (!platform::AppendXmlAttribute(xml, name, value)) {
        platform::RaiseRunTimeError(platform::RunTimeError::InvalidArgument);
    }
}

void RequireXmlText(std::string_view text) {
    if (!platform::IsXmlText(text)) platform::RaiseRunTimeError(platform::RunTimeError::InvalidArgument);
}

bool HasName(const pugi::xml_node& element) {
    return !GetXmlAttribute(element, "name").empty();
}

void SaveXmlFile(const platform::TextBuffer& xml, std::string_view path) {
    OutputFile file(path);
    xml.ForEachPiece([&file](std::string_view piece) { file.Write(piece); });
    file.Commit();
}

}  // namespace halvtiv
