#pragma once

#include <string_view>

#include <pugixml.hpp>

#include "platform/text_buffer.hpp"

namespace halvtiv::platform {

// The one writer of XML: UTF-8, no declaration, no indentation. In attribute values `&`, `<`, `>`, `"`, tab,
// CR and LF are escaped, in text `&`, `<`, `>` and CR, so that a value comes back as it went in. These
// functions answer false, with the buffer as it was, when what they are given is not UTF-8 or holds a
// character that XML cannot carry.

/// Appends the escaped value: checked and copied in one pass, 16 bytes at a time.
[[nodiscard]] bool AppendXmlAttributeValue(TextBuffer& xml, std::string_view value);
/// Appends ` name="value"`; the name is taken as it is.
[[nodiscard]] bool AppendXmlAttribute(TextBuffer& xml, std::string_view name, std::string_view value);
/// Appends escaped element text.
[[nodiscard]] bool AppendXmlElementText(TextBuffer& xml, std::string_view text);

/// Appends the markup of a node with all below it; of a document, of its children.
[[nodiscard]] bool AppendXmlNode(TextBuffer& xml, const pugi::xml_node& node);

/// Whether the text is a name that an element or attribute may have.
bool IsXmlName(std::string_view name);

}  // namespace halvtiv::platform
