#pragma once

#include <string_view>

#include <pugixml.hpp>

namespace halvtiv {

// Tolerant reading of a tree: what is missing is a default, never an error. Views live as long as the tree is
// unchanged.

/// The attribute's value, which may be ""; the default when the element is null or has no such attribute.
std::string_view GetXmlAttribute(const pugi::xml_node& element, const char* name,
                                 std::string_view defaultValue = {});
/// The value of the node's first text child; "" when it has none or is null. Text after a child element is
/// not seen.
std::string_view GetXmlNodeText(const pugi::xml_node& node);
/// The attribute's value, else the element's first text; the default only for a null element.
std::string_view GetXmlAttributeOrText(const pugi::xml_node& element, const char* name,
                                       std::string_view defaultValue = {});
/// An expression, ready to be evaluated. Raises -2147467259 for one that does not parse.
pugi::xpath_query CompileXPath(std::string_view xpath);
/// The nodes that an expression selects, in document order. Raises -2147467259 for one that selects no nodes.
pugi::xpath_node_set SelectXmlNodes(const pugi::xml_node& node, const pugi::xpath_query& query);
/// Removes every node that the trimmed expression selects below `node`. Raises what the expression raises.
bool RemoveXmlNodes(pugi::xml_node node, std::string_view xpath);
/// The document that a node belongs to; null for a null node.
pugi::xml_node GetXmlOwnerDocument(const pugi::xml_node& node);

}  // namespace halvtiv
