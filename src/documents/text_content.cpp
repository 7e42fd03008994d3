#include <algorithm>
#include <list>
#include <memory>
#include <unordered_map>
#include <utility>

#include "documents/item_xml.hpp"
#include "documents/markup_writer.hpp"
#include "documents/result_content.hpp"
#include "documents/row_index.hpp"
#include "platform/number.hpp"
#include "platform/system_pages.hpp"
#include "platform/xml_reader.hpp"

namespace halvtiv {

namespace {

using platform::TextBuffer;

void AppendStartTag(TextBuffer& xml, std::string_view name,
                    const std::vector<std::pair<std::string, std::string>>& attributes) {
    xml.Append('<');
    xml.Append(name);
    for (const auto& [attribute, value] : attributes) AppendAttribute(xml, attribute, value);
}

void AppendEndTag(TextBuffer& xml, std::string_view name) {
    xml.Append("</");
    xml.Append(name);
    xml.Append('>');
}

/// A child of the root: an entry, or markup of another kind that is kept as it is.
struct Child {
    bool isEntry = true;
    ResultEntry entry;  // of another kind: only the content counts
    mutable std::unique_ptr<RowIndex> rows;

    const RowIndex& Rows() const {
        if (!rows) rows = std::make_unique<RowIndex>(entry.content);
        return *rows;
    }
    std::optional<std::string_view> Row(std::string_view index) const {
        return Rows().Find(entry.content, index);
    }
};

class ResultReader;

class TextContent final : public ResultContent {
public:
    std::string RootAttribute(const char* name) const override {
        const auto found = FindRootAttribute(name);
        return found == rootAttributes_.end() ? std::string() : found->second;
    }

    void SetRootAttribute(const char* name, std::string_view value) override {
        const auto found = FindRootAttribute(name);
        if (found == rootAttributes_.end()) {
            rootAttributes_.emplace_back(name, value);
        } else {
            rootAttributes_[static_cast<std::size_t>(found - rootAttributes_.begin())].second = value;
        }
    }

    std::optional<std::string> EntryType(std::string_view guid) const override {
        const Child* const child = FirstEntryOf(guid);
        if (child == nullptr) return std::nullopt;
        return std::string(child->entry.Attribute("type"));
    }

    std::optional<std::string> LastRowIndex(std::string_view guid) const override {
        for (const Child* child : EntriesOf(guid)) {
            if (!child->Rows().Empty()) return child->Rows().LastIndex(child->entry.content);
        }
        return std::nullopt;
    }

    std::optional<std::string> RowXml(std::string_view guid, std::int32_t index) const override {
        char number[platform::kNumberTextSize];
        const std::string_view wanted = platform::IntegerText(index, number);
        for (const Child* child : EntriesOf(guid)) {
            if (const auto row = child->Row(wanted)) return std::string(*row);
        }
        return std::nullopt;
    }

    std::optional<std::string> EntryXml(std::string_view guid) const override {
        const Child* const child = FirstEntryOf(guid);
        if (child == nullptr) return std::nullopt;
        TextBuffer xml;
        child->entry.AppendTo(xml);
        return xml.ToString();
    }

    bool RenameEntry(std::string_view oldGuid, std::string_view newGuid) override {
        Child* const child = FirstEntryOf(oldGuid);
        if (child == nullptr) return false;
        byKey_.clear();
        for (auto& [name, value] : child->entry.attributes) {
            if (name == "guid") value = newGuid;
        }
        return true;
    }

    void RemoveEntries(std::string_view guid) override {
        if (FirstEntryOf(guid) == nullptr) return;
        byKey_.clear();
        children_.remove_if([guid](const Child& child) { return IsEntry(child, guid); });
    }

    void AppendEntry(ResultEntry entry) override {
        Child& child = children_.emplace_back();
        child.entry = std::move(entry);
        if (byKey_.empty()) return;
        try {
            AddToIndex(child);
        } catch (...) {
            children_.pop_back();
            throw;
        }
    }

    std::vector<ResultEntry> CopyEntries() const override {
        std::vector<ResultEntry> entries;
        for (const Child& child : children_) {
            if (!child.isEntry) continue;
            ResultEntry& copy = entries.emplace_back();
            copy.attributes = child.entry.attributes;
            copy.content = TextBuffer(child.entry.content.Size());
            copy.content.Append(child.entry.content);
        }
        return entries;
    }

    std::vector<ResultEntry> TakeEntries() override {
        std::vector<ResultEntry> entries;
        entries.reserve(children_.size());
        byKey_.clear();
        for (Child& child : children_) {
            if (child.isEntry) entries.push_back(std::move(child.entry));
        }
        children_.remove_if([](const Child& child) { return child.isEntry; });
        return entries;
    }

    void AppendEntries(std::vector<ResultEntry> entries) override {
        if (entries.empty()) return;
        std::list<Child> added;
        for (ResultEntry& entry : entries) added.emplace_back().entry = std::move(entry);
        const auto first = added.begin();
        children_.splice(children_.end(), added);
        if (byKey_.empty()) return;
        try {
            for (auto child = first; child != children_.end(); ++child) AddToIndex(*child);
        } catch (...) {
            byKey_.clear();  // it is made again when somebody looks something up
        }
    }

    void CopyTo(std::string& xml) const override {
        xml.reserve(xml.size() + EnoughRoom());
        WriteParts(
            *this, [&xml](const TextBuffer& part) { part.CopyTo(xml); },
            [&xml](const Child& child) { child.entry.content.CopyTo(xml); });
    }

    void MoveTo(std::string& xml) override {
        constexpr std::size_t kLarge = std::size_t{32} << 20;  // surely memory of its own
        xml.reserve(xml.size() + EnoughRoom());
        if (xml.empty() && xml.capacity() >= kLarge) platform::PreferLargePages(xml.data(), xml.capacity());
        WriteParts(
            *this, [&xml](const TextBuffer& part) { part.CopyTo(xml); },
            [&xml](Child& child) {
                child.rows.reset();
                child.entry.content.MoveTo(xml);
            });
        byKey_.clear();
        children_.clear();
        rootAttributes_.clear();
        rootName_ = kRootName;
    }

    TextBuffer ToText() const override {
        TextBuffer xml(1024);
        WriteParts(
            *this, [&xml](const TextBuffer& part) { xml.Append(part); },
            [&xml](const Child& child) { xml.Append(child.entry.content); });
        return xml;
    }

private:
    friend class ResultReader;
    static constexpr const char* kRootName = "result";
    static constexpr std::size_t kUsualTags = 512;  // bytes

    /// The key of an entry; null when it has none: no look-up finds it then, not even one for "".
    static const std::string* KeyOf(const Child& child) {
        if (!child.isEntry) return nullptr;
        for (const auto& [name, value] : child.entry.attributes) {
            if (name == "guid") return &value;
        }
        return nullptr;
    }

    static bool IsEntry(const Child& child, std::string_view guid) {
        const std::string* key = KeyOf(child);
        return key != nullptr && *key == guid;
    }

    /// All entries under a key, in document order. Many are found through an index that lasts until a change.
    std::vector<Child*> EntriesOf(std::string_view guid) const {
        constexpr std::size_t kFew = 8;
        if (children_.size() > kFew) {
            if (byKey_.empty()) FillIndex();
            const auto found = byKey_.find(std::string(guid));
            return found == byKey_.end() ? std::vector<Child*>() : found->second;
        }
        std::vector<Child*> entries;
        for (Child& child : children_) {
            if (IsEntry(child, guid)) entries.push_back(&child);
        }
        return entries;
    }

    Child* FirstEntryOf(std::string_view guid) const {
        const std::vector<Child*> entries = EntriesOf(guid);
        return entries.empty() ? nullptr : entries.front();
    }

    void FillIndex() const {
        try {
            for (Child& child : children_) AddToIndex(child);
        } catch (...) {
            byKey_.clear();  // half an index finds half the entries
            throw;
        }
    }

    void AddToIndex(Child& child) const {
        if (const std::string* key = KeyOf(child)) byKey_[*key].push_back(&child);
    }

    std::vector<std::pair<std::string, std::string>>::const_iterator FindRootAttribute(
        std::string_view name) const {
        return std::find_if(rootAttributes_.begin(), rootAttributes_.end(),
                            [name](const auto& attribute) { return attribute.first == name; });
    }

    /// Gives the document's tags to writeTags and what children hold to writeContent, in order.
    template <typename Self, typename WriteTags, typename WriteContent>
    static void WriteParts(Self& self, WriteTags&& writeTags, WriteContent&& writeContent) {
        TextBuffer tags(kUsualTags);
        AppendStartTag(tags, self.rootName_, self.rootAttributes_);
        if (self.children_.empty()) {
            tags.Append("/>");
            writeTags(tags);
            return;
        }
        tags.Append('>');
        for (auto& child : self.children_) {
            const bool empty = child.entry.content.Empty();
            if (child.isEntry) {
                AppendStartTag(tags, "data", child.entry.attributes);
                tags.Append(empty ? "/>" : ">");
            }
            writeTags(tags);
            tags.CutTo(0);
            writeContent(child);
            if (child.isEntry && !empty) AppendEndTag(tags, "data");
        }
        AppendEndTag(tags, self.rootName_);
        writeTags(tags);
    }

    /// No less than the size of the document's text, and little more.
    std::size_t EnoughRoom() const {
        std::size_t size = 2 * rootName_.size() + 8 + RoomForAttributes(rootAttributes_);
        for (const auto& child : children_) {
            constexpr std::size_t kTags = 16;
            size += kTags + RoomForAttributes(child.entry.attributes) + child.entry.content.Size();
        }
        return size;
    }

    static std::size_t RoomForAttributes(const std::vector<std::pair<std::string, std::string>>& attributes) {
        constexpr std::size_t kMostByEscaping = 6;
        std::size_t size = 0;
        for (const auto& [name, value] : attributes) size += name.size() + 4 + kMostByEscaping * value.size();
        return size;
    }

    std::string rootName_ = kRootName;
    std::vector<std::pair<std::string, std::string>> rootAttributes_;
    mutable std::list<Child> children_;  // never moved: there may be millions
    mutable std::unordered_map<std::string, std::vector<Child*>> byKey_;
};

/// Turns what the reader tells into children of a result, their markup written by our own writer.
class ResultReader final : public platform::XmlHandler {
public:
    explicit ResultReader(TextContent& content) : content_(content) {}

    void StartElement(std::string_view name, std::span<const platform::XmlAttribute> attributes) override {
        if (depth_ == 0) {
            content_.rootName_ = name;
            for (const auto& [key, value] : attributes) content_.rootAttributes_.emplace_back(key, value);
        } else if (depth_ == 1 && name == "data") {
            ResultEntry& entry = NewChild(true).entry;
            entry.attributes.reserve(attributes.size());
            for (const auto& [key, value] : attributes) entry.attributes.emplace_back(key, value);
        } else {
            markup_.StartElement(BeginNode(), name, attributes);
        }
        ++depth_;
    }

    void EndElement(std::string_view name) override {
        --depth_;
        if (depth_ == 0) return;
        if (depth_ == 1 && inEntry_) {
            inEntry_ = false;
            return;
        }
        markup_.EndElement(Current(), name);
    }

    void Text(std::string_view text) override { markup_.Text(BeginNode(), text); }
    void Comment(std::string_view text) override { markup_.Comment(BeginNode(), text); }
    void ProcessingInstruction(std::string_view target, std::string_view data) override {
        markup_.ProcessingInstruction(BeginNode(), target, data);
    }

private:
    Child& NewChild(bool isEntry) {
        inEntry_ = isEntry;
        Child& child = content_.children_.emplace_back();
        child.isEntry = isEntry;
        return child;
    }

    TextBuffer& Current() { return content_.children_.back().entry.content; }

    /// Where the markup goes that begins now: children of an entry, and of the root, each in a run of its
    /// own.
    TextBuffer& BeginNode() {
        const bool ofRoot = depth_ == 1;
        if (ofRoot && (content_.children_.empty() || content_.children_.back().isEntry)) NewChild(false);
        if (ofRoot || (depth_ == 2 && inEntry_)) Current().BeginRun();
        return Current();
    }

    TextContent& content_;
    MarkupWriter markup_;
    int depth_ = 0;         // elements open
    bool inEntry_ = false;  // inside a "data" child of the root
};

}  // namespace

std::string_view ResultEntry::Attribute(std::string_view name) const {
    for (const auto& [key, value] : attributes) {
        if (key == name) return value;
    }
    return {};
}

void ResultEntry::AppendTo(TextBuffer& xml) const {
    AppendStartTag(xml, "data", attributes);
    if (content.Empty()) {
        xml.Append("/>");
        return;
    }
    xml.Append('>');
    xml.Append(content);
    AppendEndTag(xml, "data");
}

std::unique_ptr<ResultContent> NewTextContent() {
    return std::make_unique<TextContent>();
}

std::unique_ptr<ResultContent> ParseTextContent(std::string_view xml) {
    auto content = std::make_unique<TextContent>();
    ResultReader reader(*content);
    if (!platform::ReadXmlText(xml, reader)) return nullptr;
    return content;
}

}  // namespace halvtiv
