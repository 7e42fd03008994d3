#include "foundation/xml_utils.hpp"

#include <string>
#include <vector>

#include <halvtiv/error_info.hpp>

#include "foundation/err_object.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

bool IsInside(pugi::xml_node node, const pugi::xml_node& ancestor) {
    while (node && node != ancestor) node = node.parent();
    return node && ancestor;
}

template <typename Evaluate>
auto WithXPathErrors(Evaluate&& evaluate) {
    try {
        return evaluate();
    } catch (const pugi::xpath_exception& error) {
        throw ErrorInfo(kUnspecifiedError, error.what(), "XPath");
    }
}

}  // namespace

std::string_view GetXmlAttribute(const pugi::xml_node& element, const char* name,
                                 std::string_view defaultValue) {
    const pugi::xml_attribute attribute = element.attribute(name);
    return attribute ? std::string_view(attribute.value()) : defaultValue;
}

std::string_view GetXmlNodeText(const pugi::xml_node& node) {
    for (const pugi::xml_node child : node.children()) {
        if (child.type() == pugi::node_pcdata || child.type() == pugi::node_cdata) return child.value();
    }
    return {};
}

std::string_view GetXmlAttributeOrText(const pugi::xml_node& element, const char* name,
                                       std::string_view defaultValue) {
    if (!element) return defaultValue;
    const pugi::xml_attribute attribute = element.attribute(name);
    return attribute ? std::string_view(attribute.value()) : GetXmlNodeText(element);
}

pugi::xpath_query CompileXPath(std::string_view xpath) {
    return WithXPathErrors([&] { return pugi::xpath_query(std::string(xpath).c_str()); });
}

pugi::xpath_node_set SelectXmlNodes(const pugi::xml_node& node, const pugi::xpath_query& query) {
    return WithXPathErrors([&] {
        pugi::xpath_node_set selected = query.evaluate_node_set(node);
        selected.sort();
        return selected;
    });
}

bool RemoveXmlNodes(pugi::xml_node node, std::string_view xpath) {
    const pugi::xpath_node_set selected = SelectXmlNodes(node, CompileXPath(platform::TrimBlanks(xpath)));
    // What lies inside a removed subtree goes with it and must not be touched again. In document order a
    // subtree's own nodes follow its root directly.
    std::vector<pugi::xpath_node> outermost;
    for (const pugi::xpath_node& found : selected) {
        const pugi::xml_node at = found.attribute() ? found.parent() : found.node();
        const bool goesWithIt = !outermost.empty() && IsInside(at, outermost.back().node());
        if (!goesWithIt && found.parent()) outermost.push_back(found);
    }
    for (const pugi::xpath_node& found : outermost) {
        pugi::xml_node parent = found.parent();
        if (found.attribute()) {
            parent.remove_attribute(found.attribute());
        } else {
            parent.remove_child(found.node());
        }
    }
    return true;
}

pugi::xml_node GetXmlOwnerDocument(const pugi::xml_node& node) {
    pugi::xml_node at = node;
    while (at && at.type() != pugi::node_document) at = at.parent();
    return at;
}

}  // namespace halvtiv
