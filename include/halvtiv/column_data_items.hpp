#pragma once

#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <halvtiv/export.hpp>

namespace halvtiv {

/// One named value: a cell of a row, or a parameter of a call.
struct ZorbColumnDataItem {
    std::string Name;           ///< column or parameter name; compared without regard to case
    std::string Value;          ///< the value as text
    std::int32_t DataType = 0;  ///< a `QorvColumnTypeEnum` code
    std::string ExtraValue;     ///< free annotation, such as "quoted"
};
using ZorbColumnDataItemPtr = std::shared_ptr<ZorbColumnDataItem>;

class ZorbColumnDataItems;
using ZorbColumnDataItemsPtr = std::shared_ptr<ZorbColumnDataItems>;

/// The ordered collection of `ZorbColumnDataItem`s: one row, or one block of parameters.
///
/// Positions count from 1. Items are shared with whoever holds their pointer: a change through the
/// pointer is a change of the collection. One object is used by one thread at a time.
///
/// This class keeps no last error: what fails is raised as `ErrorInfo` (number -1 with the messages
/// named below, or a run-time error: 9 unknown position, 5 unknown key or text that XML cannot carry,
/// 457 duplicate key).
class HALVTIV_API ZorbColumnDataItems {
public:
    /// Visits the items in order. Adding or removing items invalidates iterators.
    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = ZorbColumnDataItemPtr;
        using difference_type = std::ptrdiff_t;
        using pointer = const ZorbColumnDataItemPtr*;
        using reference = const ZorbColumnDataItemPtr&;

        Iterator() = default;
        Iterator(const ZorbColumnDataItems* items, std::size_t index) : items_(items), index_(index) {}
        reference operator*() const { return items_->ItemAt(index_); }
        pointer operator->() const { return &items_->ItemAt(index_); }
        Iterator& operator++() {
            ++index_;
            return *this;
        }
        Iterator operator++(int) {
            Iterator before = *this;
            ++index_;
            return before;
        }
        bool operator==(const Iterator&) const = default;

    private:
        const ZorbColumnDataItems* items_ = nullptr;
        std::size_t index_ = 0;
    };

    ZorbColumnDataItems();
    ~ZorbColumnDataItems();
    ZorbColumnDataItems(const ZorbColumnDataItems&) = delete;
    ZorbColumnDataItems& operator=(const ZorbColumnDataItems&) = delete;

    /// Appends a new item and returns it. A key is attached only when the collection already holds an
    /// item: the first item never has one. Raises 457 when another item has the key already, 5 when a
    /// text is not UTF-8 or holds a character that XML cannot carry; nothing is added then.
    ZorbColumnDataItemPtr Add(std::string_view sName, std::string_view sValue, std::int32_t lDataType = 0,
                              std::string_view sExtraValue = {}, std::string_view sKey = {});
    /// `Add` with the fields of cItem: what is stored is a copy.
    ZorbColumnDataItemPtr AddItem(const ZorbColumnDataItem& cItem, std::string_view sKey = {});

    /// The item at a position from 1; raises 9 when there is none.
    ZorbColumnDataItemPtr Item(std::int32_t lIndex) const;
    /// The item added under a key, in any letter case; raises 5 when there is none.
    ZorbColumnDataItemPtr Item(std::string_view sKey) const;
    /// The first item of that name, ignoring case, at or after a position; null when there is none. Searches:
    /// items may be renamed through their pointers.
    ZorbColumnDataItemPtr GetItemByName(std::string_view sName, std::int32_t nStartIndex = 1) const;
    /// The value of `GetItemByName(sName)`; "" when there is no such item.
    std::string GetItemValueByName(std::string_view sName) const;

    /// Removes every item of that name, ignoring case, from the last position down to nStartIndex.
    void RemoveItemByName(std::string_view sName, std::int32_t nStartIndex = 1);
    /// Number of items.
    std::int32_t Count() const;
    /// Removes the item at a position from 1; raises 9 when there is none. The items behind it are moved, so
    /// that many are removed fastest from the last one on.
    void Remove(std::int32_t lIndex);
    /// Removes the item added under a key; raises 5 when there is none.
    void Remove(std::string_view sKey);
    /// Removes all items. `Tag` is kept.
    void Reset();

    /// Free text of the owner; the name of the block where a call holds this collection. Writing raises 5 for
    /// a text that XML cannot carry.
    std::string Tag() const;
    void Tag(std::string_view sTag);

    /// Replaces tag and items by copies of another collection's, without their keys. Always true.
    bool CopyFrom(const ZorbColumnDataItems& cNewItem);
    /// Replaces the items by those of an XML text: the children sColTag of its root that have a name.
    /// "value", "type" and "extra" may stand as attributes or as the element's text; all are trimmed and
    /// an unknown type counts as 0. Raises "Failed to load Xml Data Row." (the items are gone then) and
    /// "Failed to add new item." (those added before it stay).
    bool Parse(std::string_view sDataRowXml, std::string_view sColTag);
    /// Writes the items as XML: a root sRootKey with one sItemTag an item. False, with the message in
    /// sSaveErrMsg and the other argument untouched, when a name does not fit an element or an item was given
    /// a text that XML cannot carry.
    bool Save(std::string& sItemsXml, std::string_view sRootKey, std::string_view sItemTag,
              std::string& sSaveErrMsg) const;
    /// `Save` to a file (UTF-8), which appears under its name only when it is complete.
    bool SaveFile(std::string_view sFilename, std::string_view sRootKey, std::string_view sItemTag,
                  std::string& sSaveErrMsg) const;

    // So that a range-for visits the items.
    Iterator begin() const;
    Iterator end() const;

private:
    friend class CallReader;
    friend class ZorbFunctionCall;
    void Append(ZorbColumnDataItemPtr item);
    void TakeFrom(ZorbColumnDataItems& other) noexcept;
    const ZorbColumnDataItemPtr& ItemAt(std::size_t index) const;
    void RemoveAt(std::size_t index);

    struct Entry {
        ZorbColumnDataItemPtr item;
        const std::string* key = nullptr;  // that of keys_; null when the item has none
    };
    std::string tag_;
    std::vector<Entry> entries_;
    std::unordered_map<std::string, ZorbColumnDataItemPtr> keys_;  // lower-cased
};

}  // namespace halvtiv
