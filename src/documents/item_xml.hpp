#pragma once

#include <cstdint>
#include <string_view>

#include <pugixml.hpp>

#include <halvtiv/column_data_items.hpp>

#include "platform/text_buffer.hpp"

namespace halvtiv {

/// An item as an element shows it: all four trimmed, an unknown type 0. Views into the tree.
struct ItemView {
    std::string_view name;
    std::string_view value;
    std::int32_t type = 0;
    std::string_view extra;
};
/// "name" is an attribute; "value", "type" and "extra" are attributes or the element's text.
ItemView ReadItem(const pugi::xml_node& element);

/// The code of an item's "type", trimmed; an unknown one is 0.
std::int32_t ItemTypeOf(std::string_view typeName);

/// When an item's "extra" is written.
enum class WriteExtra { Always, WhenNotEmpty };

/// Appends the element of one item: "name", "value", "type" unless 0, "extra". Raises 5 for a text that XML
/// cannot carry.
void AppendItem(platform::TextBuffer& xml, std::string_view tag, const ZorbColumnDataItem& item,
                WriteExtra extra);

/// Appends ` name="value"`; raises 5 for a value that XML cannot carry.
void AppendAttribute(platform::TextBuffer& xml, std::string_view name, std::string_view value);

/// Raises 5 for a text that XML cannot carry: no client's text enters a document otherwise.
void RequireXmlText(std::string_view text);

/// Whether the element has a "name" that is not empty.
bool HasName(const pugi::xml_node& element);

/// Writes a document to a file, which appears under its name only when it is complete.
void SaveXmlFile(const platform::TextBuffer& xml, std::string_view path);

}  // namespace halvtiv
