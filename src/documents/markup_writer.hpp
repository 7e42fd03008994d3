#pragma once

#include <span>
#include <string_view>

#include "platform/text_buffer.hpp"
#include "platform/xml_reader.hpp"

namespace halvtiv {

/// Writes what the XML reader tells as markup with the same meaning, to the end of a buffer. The buffer may
/// be another one whenever no element is open. Raises 5 for a text that XML cannot carry.
class MarkupWriter {
public:
    void StartElement(platform::TextBuffer& xml, std::string_view name,
                      std::span<const platform::XmlAttribute> attributes);
    void EndElement(platform::TextBuffer& xml, std::string_view name);
    void Text(platform::TextBuffer& xml, std::string_view text);
    void Comment(platform::TextBuffer& xml, std::string_view text);
    void ProcessingInstruction(platform::TextBuffer& xml, std::string_view target, std::string_view data);

private:
    void CloseTag(platform::TextBuffer& xml);

    bool tagOpen_ = false;  // the last start tag still lacks its ">"
};

}  // namespace halvtiv
