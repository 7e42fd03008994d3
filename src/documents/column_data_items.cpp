#include <halvtiv/column_data_items.hpp>

#include <algorithm>
#include <utility>

#include <pugixml.hpp>

#include "documents/item_xml.hpp"
#include "foundation/err_object.hpp"
#include "foundation/xml_utils.hpp"
#include "platform/run_time_error.hpp"
#include "platform/text.hpp"
#include "platform/xml_reader.hpp"
#include "platform/xml_writer.hpp"

namespace halvtiv {

using platform::RaiseRunTimeError;
using platform::RunTimeError;

namespace {

[[noreturn]] void Raise(std::string message) {
    throw OwnError("ZorbColumnDataItems", std::move(message));
}

/// The children of the root with that tag and a name, in document order. The tag goes into the expression as
/// it is; a plain one needs no expression.
std::vector<pugi::xml_node> SelectItems(const pugi::xml_document& document, std::string_view tag) {
    std::vector<pugi::xml_node> selected;
    if (platform::IsXmlName(tag) && tag.find(':') == std::string_view::npos) {
        for (const pugi::xml_node child : document.document_element().children()) {
            if (child.type() == pugi::node_element && tag == child.name() && HasName(child)) {
                selected.push_back(child);
            }
        }
        return selected;
    }
    const std::string expression = "/*/" + std::string(tag) + "[@name!='']";
    for (const pugi::xpath_node& node : SelectXmlNodes(document, CompileXPath(expression))) {
        selected.push_back(node.node());
    }
    return selected;
}

void AppendItems(platform::TextBuffer& xml, const ZorbColumnDataItems& items, std::string_view rootKey,
                 std::string_view itemTag) {
    if (!platform::IsXmlName(rootKey)) Raise("Failed to create xml root element.");
    if (items.Count() > 0 && !platform::IsXmlName(itemTag)) RaiseRunTimeError(RunTimeError::InvalidArgument);
    xml.Append('<');
    xml.Append(rootKey);
    if (items.Count() == 0) {
        xml.Append("/>");
        return;
    }
    xml.Append('>');
    for (const ZorbColumnDataItemPtr& item : items) AppendItem(xml, itemTag, *item, WriteExtra::WhenNotEmpty);
    xml.Append("</");
    xml.Append(rootKey);
    xml.Append('>');
}

/// Runs a save; false with the message of what it raised.
template <typename Body>
bool Saves(std::string& message, Body&& body) {
    message.clear();
    try {
        body();
        return true;
    } catch (const ErrorInfo& error) {
        message = error.Description;
        return false;
    }
}

}  // namespace

ZorbColumnDataItems::ZorbColumnDataItems() = default;
ZorbColumnDataItems::~ZorbColumnDataItems() = default;

ZorbColumnDataItemPtr ZorbColumnDataItems::Add(std::string_view sName, std::string_view sValue,
                                               std::int32_t lDataType, std::string_view sExtraValue,
                                               std::string_view sKey) {
    RequireXmlText(sName);
    RequireXmlText(sValue);
    RequireXmlText(sExtraValue);
    auto item = std::make_shared<ZorbColumnDataItem>();
    item->Name = sName;
    item->Value = sValue;
    item->DataType = lDataType;
    item->ExtraValue = sExtraValue;
    if (entries_.empty() || sKey.empty()) {
        Append(item);
        return item;
    }
    const auto [key, added] = keys_.try_emplace(platform::ToLower(sKey), item);
    if (!added) RaiseRunTimeError(RunTimeError::DuplicateKey);
    try {
        entries_.push_back({item, &key->first});
    } catch (...) {
        keys_.erase(key);
        throw;
    }
    return item;
}

ZorbColumnDataItemPtr ZorbColumnDataItems::AddItem(const ZorbColumnDataItem& cItem, std::string_view sKey) {
    return Add(cItem.Name, cItem.Value, cItem.DataType, cItem.ExtraValue, sKey);
}

ZorbColumnDataItemPtr ZorbColumnDataItems::Item(std::int32_t lIndex) const {
    if (lIndex < 1 || lIndex > Count()) RaiseRunTimeError(RunTimeError::SubscriptOutOfRange);
    return entries_[static_cast<std::size_t>(lIndex) - 1].item;
}

ZorbColumnDataItemPtr ZorbColumnDataItems::Item(std::string_view sKey) const {
    const auto found = keys_.find(platform::ToLower(sKey));
    if (found == keys_.end()) RaiseRunTimeError(RunTimeError::InvalidArgument);
    return found->second;
}

ZorbColumnDataItemPtr ZorbColumnDataItems::GetItemByName(std::string_view sName,
                                                         std::int32_t nStartIndex) const {
    for (std::int32_t index = std::max(nStartIndex, 1); index <= Count(); ++index) {
        const ZorbColumnDataItemPtr& item = ItemAt(static_cast<std::size_t>(index) - 1);
        if (platform::EqualIgnoringCase(item->Name, sName)) return item;
    }
    return nullptr;
}

std::string ZorbColumnDataItems::GetItemValueByName(std::string_view sName) const {
    const ZorbColumnDataItemPtr item = GetItemByName(sName);
    return item ? item->Value : std::string();
}

void ZorbColumnDataItems::RemoveItemByName(std::string_view sName, std::int32_t nStartIndex) {
    const std::string name(sName);  // it may be that of an item that goes
    const auto first = entries_.begin() + (std::clamp(nStartIndex, 1, Count() + 1) - 1);
    const auto goes = [&](const Entry& entry) {
        if (!platform::EqualIgnoringCase(entry.item->Name, name)) return false;
        if (entry.key != nullptr) keys_.erase(*entry.key);
        return true;
    };
    entries_.erase(std::remove_if(first, entries_.end(), goes), entries_.end());
}

std::int32_t ZorbColumnDataItems::Count() const {
    return static_cast<std::int32_t>(entries_.size());
}

void ZorbColumnDataItems::Remove(std::int32_t lIndex) {
    if (lIndex < 1 || lIndex > Count()) RaiseRunTimeError(RunTimeError::SubscriptOutOfRange);
    RemoveAt(static_cast<std::size_t>(lIndex) - 1);
}

void ZorbColumnDataItems::Remove(std::string_view sKey) {
    const auto found = keys_.find(platform::ToLower(sKey));
    if (found == keys_.end()) RaiseRunTimeError(RunTimeError::InvalidArgument);
    const auto at = std::find_if(entries_.begin(), entries_.end(),
                                 [&](const Entry& entry) { return entry.key == &found->first; });
    RemoveAt(static_cast<std::size_t>(at - entries_.begin()));
}

void ZorbColumnDataItems::Reset() {
    entries_.clear();
    keys_.clear();
}

std::string ZorbColumnDataItems::Tag() const {
    return tag_;
}

void ZorbColumnDataItems::Tag(std::string_view sTag) {
    RequireXmlText(sTag);
    tag_ = sTag;
}

bool ZorbColumnDataItems::CopyFrom(const ZorbColumnDataItems& cNewItem) {
    if (this == &cNewItem) return true;
    Reset();
    Tag(cNewItem.tag_);
    for (const ZorbColumnDataItemPtr& item : cNewItem) AddItem(*item);
    return true;
}

bool ZorbColumnDataItems::Parse(std::string_view sDataRowXml, std::string_view sColTag) {
    Reset();
    pugi::xml_document document;
    if (!platform::LoadXmlText(sDataRowXml, document)) Raise("Failed to load Xml Data Row.");
    for (const pugi::xml_node& element : SelectItems(document, sColTag)) {
        const ItemView item = ReadItem(element);
        if (!Add(item.name, item.value, item.type, item.extra)) Raise("Failed to add new item.");
    }
    return true;
}

bool ZorbColumnDataItems::Save(std::string& sItemsXml, std::string_view sRootKey, std::string_view sItemTag,
                               std::string& sSaveErrMsg) const {
    return Saves(sSaveErrMsg, [&] {
        platform::TextBuffer xml;
        AppendItems(xml, *this, sRootKey, sItemTag);
        sItemsXml = xml.ToString();
    });
}

bool ZorbColumnDataItems::SaveFile(std::string_view sFilename, std::string_view sRootKey,
                                   std::string_view sItemTag, std::string& sSaveErrMsg) const {
    return Saves(sSaveErrMsg, [&] {
        platform::TextBuffer xml;
        AppendItems(xml, *this, sRootKey, sItemTag);
        SaveXmlFile(xml, sFilename);
    });
}

ZorbColumnDataItems::Iterator ZorbColumnDataItems::begin() const {
    return {this, 0};
}

ZorbColumnDataItems::Iterator ZorbColumnDataItems::end() const {
    return {this, entries_.size()};
}

void ZorbColumnDataItems::Append(ZorbColumnDataItemPtr item) {
    constexpr std::size_t kUsual = 4;
    if (entries_.empty()) entries_.reserve(kUsual);
    entries_.push_back({std::move(item)});
}

void ZorbColumnDataItems::TakeFrom(ZorbColumnDataItems& other) noexcept {
    tag_ = std::move(other.tag_);
    entries_ = std::move(other.entries_);
    keys_ = std::move(other.keys_);
}

const ZorbColumnDataItemPtr& ZorbColumnDataItems::ItemAt(std::size_t index) const {
    return entries_[index].item;
}

void ZorbColumnDataItems::RemoveAt(std::size_t index) {
    const auto entry = entries_.begin() + static_cast<std::ptrdiff_t>(index);
    if (entry->key != nullptr) keys_.erase(*entry->key);
    entries_.erase(entry);
}

}  // namespace halvtiv
