#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <halvtiv/column_data_items.hpp>

#include "platform/xml_reader.hpp"

namespace halvtiv {

/// What a call's document says.
struct CallParts {
    std::string name;
    std::string guid;
    ZorbColumnDataItems params;
    std::vector<ZorbColumnDataItemsPtr> dataParams;
};

/// Reads a call straight from what the XML reader tells: a request is read once and needs no tree.
///
/// Every "param" child of the root with a "name" counts: one with "col" children is a block, any other a
/// parameter. "value", "type" and "extra" are attributes or the element's first text; all texts are trimmed.
class CallReader final : public platform::XmlHandler {
public:
    explicit CallReader(CallParts& parts) : parts_(parts) {}

    void StartElement(std::string_view name, std::span<const platform::XmlAttribute> attributes) override;
    void EndElement(std::string_view name) override;
    void Text(std::string_view text) override;

private:
    /// An item of which only the start is known.
    struct Pending {
        ZorbColumnDataItemPtr item;
        bool hasValue = false, hasType = false, hasExtra = false;  // as attributes
        std::string text;                                          // the first
        bool hasText = false;

        bool Wanted() const { return item != nullptr; }
        void Start(std::span<const platform::XmlAttribute> attributes, bool mustHaveName);
        void AddText(std::string_view more);
        ZorbColumnDataItemPtr Finish();
    };

    CallParts& parts_;
    int depth_ = 0;
    Pending param_;                 // wanted: in a "param" with a name
    Pending column_;                // wanted: in a "col" of such a one
    ZorbColumnDataItemsPtr block_;  // of the current "param", once it has a "col"
};

}  // namespace halvtiv
