#pragma once

#include <span>
#include <string>
#include <string_view>

#include <pugixml.hpp>

namespace halvtiv::platform {

/// One attribute, its value with all references resolved.
struct XmlAttribute {
    std::string_view name;
    std::string_view value;
};

/// What a document holds, told in its order. Views live only during the call. Text adjacent to text comes as
/// one piece, CDATA included; white space alone is left out, and so is all outside the root element.
class XmlHandler {
public:
    virtual ~XmlHandler() = default;
    virtual void StartElement(std::string_view /*name*/, std::span<const XmlAttribute> /*attributes*/) {}
    virtual void EndElement(std::string_view /*name*/) {}
    virtual void Text(std::string_view /*text*/) {}
    virtual void Comment(std::string_view /*text*/) {}
    virtual void ProcessingInstruction(std::string_view /*target*/, std::string_view /*data*/) {}
};

// Reading is strict: what is not well-formed XML 1.0 is refused, and so are any DOCTYPE and nesting deeper
// than 256. False means refused; what the handler was told before does not count then. An exception of the
// handler passes through.

/// A text is UTF-8 whatever its declaration says, unless its first bytes show UTF-16.
bool ReadXmlText(std::string_view text, XmlHandler& handler);

/// A text as a tree; the document is emptied first and stays empty when the text is refused.
bool LoadXmlText(std::string_view text, pugi::xml_document& document);

/// A file's bytes as a tree: by their byte order mark or declaration, in any encoding that iconv knows.
bool LoadXmlFileBytes(std::string_view bytes, pugi::xml_document& document);

/// A file's bytes as UTF-8 text, by their byte order mark or declaration; false when the encoding is unknown
/// or the bytes do not fit it. The declaration, if any, stays in the text and no longer tells the encoding.
bool DecodeXmlFileBytes(std::string_view bytes, std::string& utf8);

}  // namespace halvtiv::platform
