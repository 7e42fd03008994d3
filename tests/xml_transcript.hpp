#pragma once

#include <ostream>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <pugixml.hpp>

#include "platform/xml_reader.hpp"

namespace halvtiv::test {

/// Writes down what it is told, a line for each part.
struct Transcript : platform::XmlHandler {
    void StartElement(std::string_view name, std::span<const platform::XmlAttribute> attributes) override {
        Line("start") << name;
        for (const platform::XmlAttribute& attribute : attributes)
            Line("with") << attribute.name << '=' << attribute.value;
    }
    void EndElement(std::string_view name) override { Line("end") << name; }
    void Text(std::string_view text) override { Line("text") << text; }
    std::ostream& Line(std::string_view what) { return words << '\n' << what << ' '; }

    std::ostringstream words;
};

inline void Retell(pugi::xml_node node, Transcript& transcript) {
    std::vector<platform::XmlAttribute> attributes;
    for (const auto attribute : node.attributes())
        attributes.push_back({attribute.name(), attribute.value()});
    transcript.StartElement(node.name(), attributes);
    for (const auto child : node.children()) {
        if (child.type() == pugi::node_element) Retell(child, transcript);
        if (child.type() == pugi::node_pcdata) transcript.Text(child.value());
        if (child.type() == pugi::node_comment || child.type() == pugi::node_pi) transcript.Line("other");
    }
    transcript.EndElement(node.name());
}

/// What the parser makes of a text; "" where it refuses it.
inline std::string Parsed(std::string_view text) {
    pugi::xml_document document;
    if (!platform::LoadXmlText(text, document)) return {};
    Transcript transcript;
    Retell(document.document_element(), transcript);
    return transcript.words.str();
}

}  // namespace halvtiv::test
