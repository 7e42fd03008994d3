#include "documents/call_reader.hpp"

#include <utility>

#include "documents/item_xml.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

constexpr int kRoot = 1;  // depths
constexpr int kParam = 2;
constexpr int kColumn = 3;

}  // namespace

void CallReader::StartElement(std::string_view name, std::span<const platform::XmlAttribute> attributes) {
    ++depth_;
    if (depth_ == kRoot) {
        for (const auto& [attribute, value] : attributes) {
            if (attribute == "name") parts_.name = platform::TrimBlanks(value);
            if (attribute == "guid") parts_.guid = platform::TrimBlanks(value);
        }
    } else if (depth_ == kParam && name == "param") {
        param_.Start(attributes, true);
    } else if (depth_ == kColumn && param_.Wanted() && name == "col") {
        if (!block_) {
            block_ = std::make_shared<ZorbColumnDataItems>();
            block_->Tag(param_.item->Name);
        }
        column_.Start(attributes, false);
    }
}

void CallReader::EndElement(std::string_view /*name*/) {
    if (depth_ == kColumn && column_.Wanted()) {
        block_->Append(column_.Finish());
    } else if (depth_ == kParam && param_.Wanted()) {
        ZorbColumnDataItemPtr param = param_.Finish();
        if (block_) {
            parts_.dataParams.push_back(std::exchange(block_, nullptr));
        } else {
            parts_.params.Append(std::move(param));
        }
    }
    --depth_;
}

void CallReader::Text(std::string_view text) {
    if (depth_ == kParam) param_.AddText(text);
    if (depth_ == kColumn) column_.AddText(text);
}

void CallReader::Pending::Start(std::span<const platform::XmlAttribute> attributes, bool mustHaveName) {
    bool hasName = false;
    hasValue = hasType = hasExtra = hasText = false;
    text.clear();
    item = std::make_shared<ZorbColumnDataItem>();
    for (const auto& [attribute, value] : attributes) {
        const std::string_view trimmed = platform::TrimBlanks(value);
        if (attribute == "name") {
            hasName = !value.empty();
            item->Name = trimmed;
        } else if (attribute == "value") {
            hasValue = true;
            item->Value = trimmed;
        } else if (attribute == "type") {
            hasType = true;
            item->DataType = ItemTypeOf(trimmed);
        } else if (attribute == "extra") {
            hasExtra = true;
            item->ExtraValue = trimmed;
        }
    }
    if (mustHaveName && !hasName) item.reset();
}

void CallReader::Pending::AddText(std::string_view more) {
    if (!Wanted() || hasText) return;
    hasText = true;
    text = platform::TrimBlanks(more);
}

ZorbColumnDataItemPtr CallReader::Pending::Finish() {
    if (!hasValue) item->Value = text;
    if (!hasType) item->DataType = ItemTypeOf(text);
    if (!hasExtra) item->ExtraValue = text;
    return std::exchange(item, nullptr);
}

}  // namespace halvtiv
