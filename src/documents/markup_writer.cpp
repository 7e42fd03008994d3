#include "documents/markup_writer.hpp"

#include <utility>

#include "documents/item_xml.hpp"
#include "platform/run_time_error.hpp"
#include "platform/xml_writer.hpp"

namespace halvtiv {

using platform::TextBuffer;

void MarkupWriter::StartElement(TextBuffer& xml, std::string_view name,
                                std::span<const platform::XmlAttribute> attributes) {
    CloseTag(xml);
    xml.Append('<');
    xml.Append(name);
    for (const auto& [attribute, value] : attributes) AppendAttribute(xml, attribute, value);
    tagOpen_ = true;
}

void MarkupWriter::EndElement(TextBuffer& xml, std::string_view name) {
    if (std::exchange(tagOpen_, false)) {
        xml.Append("/>");
        return;
    }
    xml.Append("</");
    xml.Append(name);
    xml.Append('>');
}

void MarkupWriter::Text(TextBuffer& xml, std::string_view text) {
    CloseTag(xml);
    if (!platform::AppendXmlElementText(xml, text)) {
        platform::RaiseRunTimeError(platform::RunTimeError::InvalidArgument);
    }
}

void MarkupWriter::Comment(TextBuffer& xml, std::string_view text) {
    CloseTag(xml);
    xml.Append("<!--");
    xml.Append(text);
    xml.Append("-->");
}

void MarkupWriter::ProcessingInstruction(TextBuffer& xml, std::string_view target, std::string_view data) {
    CloseTag(xml);
    xml.Append("<?");
    xml.Append(target);
    if (!data.empty()) xml.Append(' ');
    xml.Append(data);
    xml.Append("?>");
}

void MarkupWriter::CloseTag(TextBuffer& xml) {
    if (std::exchange(tagOpen_, false)) xml.Append('>');
}

}  // namespace halvtiv
