#include <algorithm>
#include <cstdint>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <utility>

#include "documents/item_xml.hpp"
#include "documents/key_expression.hpp"
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
    std::uint64_t number = 0;  // grows in document order
    bool isEntry = true;
    ResultEntry entry;  // of another kind: only the content counts
    mutable std::unique_ptr<RowIndex> rows;
    std::list<Child>::iterator self;

    const RowIndex& Rows() const {
        if (!rows) rows = std::make_unique<RowIndex>(entry.content);
        return *rows;
    }
    std::optional<std::string_view> Row(std::string_view index) const {
        return Rows().Find(entry.content, index);
    }
};

using Children = std::list<Child>;

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
        std::optional<std::string> index;
        VisitEntries(guid, KeyMeans::ExpressionOrText, [&index](const Child& child) {
            if (!child.Rows().Empty()) index = child.Rows().LastIndex(child.entry.content);
            return index.has_value();
        });
        return index;
    }

    std::optional<std::string> RowXml(std::string_view guid, std::int32_t index) const override {
        char number[platform::kNumberTextSize];
        const std::string_view wanted = platform::IntegerText(index, number);
        std::optional<std::string> xml;
        VisitEntries(guid, KeyMeans::ExpressionOrText, [&](const Child& child) {
            if (const auto row = child.Row(wanted)) xml = *row;
            return xml.has_value();
        });
        return xml;
    }

    std::optional<std::string> EntryXml(std::string_view guid) const override {
        const Child* const child = FirstEntryOf(guid);
        if (child == nullptr) return std::nullopt;
        TextBuffer xml;
        child->entry.AppendTo(xml);
        return xml.ToString();
    }

    bool RenameEntry(std::string_view oldGuid, std::string_view newGuid, KeyMeans means) override {
        Child* const child = FirstEntryOf(oldGuid, means);
        if (child == nullptr) return false;
        std::string renamed(newGuid);
        selection_.reset();
        std::string* const key = KeyOf(*child);
        if (key == nullptr) {  // found by another attribute
            ForgetIndex();
            child->entry.attributes.emplace_back("guid", std::move(renamed));
            return true;
        }
        auto place = byKey_.extract({*key, child->number});
        *key = std::move(renamed);
        if (place.empty()) return true;
        place.key().first = *key;
        byKey_.insert(std::move(place));
        return true;
    }

    void RemoveEntries(std::string_view guid, KeyMeans means) override {
        std::vector<Child*> removed;
        const auto collect = [&removed](Child& child) {
            removed.push_back(&child);
            return false;
        };
        VisitEntries(guid, means, collect);
        if (removed.empty()) return;
        selection_.reset();
        for (Child* const child : removed) {
            if (const std::string* const key = KeyOf(*child)) byKey_.erase({*key, child->number});
            children_.erase(child->self);
        }
    }

    void AppendEntry(ResultEntry entry) override {
        Child& child = AddChild();
        child.entry = std::move(entry);
        if (!isIndexed_) return;
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
        Forget();
        for (Child& child : children_) {
            if (child.isEntry) entries.push_back(std::move(child.entry));
        }
        children_.remove_if([](const Child& child) { return child.isEntry; });
        return entries;
    }

    void AppendEntries(std::vector<ResultEntry> entries) override {
        if (entries.empty()) return;
        Children added;
        for (ResultEntry& entry : entries) Number(added, added.emplace_back()).entry = std::move(entry);
        const auto first = added.begin();
        children_.splice(children_.end(), added);
        selection_.reset();
        if (!isIndexed_) return;
        try {
            for (auto child = first; child != children_.end(); ++child) AddToIndex(*child);
        } catch (...) {
            ForgetIndex();  // it is made again by the next look-up
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
        Forget();
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
    static std::string* KeyOf(Child& child) {
        if (!child.isEntry) return nullptr;
        for (auto& [name, value] : child.entry.attributes) {
            if (name == "guid") return &value;
        }
        return nullptr;
    }

    Child& Number(Children& children, Child& child) const {
        child.number = nextNumber_++;
        child.self = std::prev(children.end());
        return child;
    }

    /// Appends an empty child.
    Child& AddChild() {
        selection_.reset();
        return Number(children_, children_.emplace_back());
    }

    /// Visits the entries under a key, in document order, until `visit` answers true.
    template <typename Visit>
    void VisitEntries(std::string_view guid, KeyMeans means, Visit&& visit) const {
        if (means == KeyMeans::Text || !KeyExpression::Is(guid)) return VisitEntriesOfText(guid, visit);
        for (Child* const child : SelectionOf(guid)) {
            if (visit(*child)) return;
        }
    }

    /// The same for a key that is compared as it stands. Many entries are found through an index.
    template <typename Visit>
    void VisitEntriesOfText(std::string_view guid, Visit&& visit) const {
        constexpr std::size_t kFew = 8;
        if (children_.size() <= kFew) {
            for (Child& child : children_) {
                const std::string* const key = KeyOf(child);
                if (key != nullptr && *key == guid && visit(child)) return;
            }
            return;
        }
        FillIndex();
        for (auto at = byKey_.lower_bound({guid, 0}); at != byKey_.end() && at->first.first == guid; ++at) {
            if (visit(*at->second)) return;
        }
    }

    Child* FirstEntryOf(std::string_view guid, KeyMeans means = KeyMeans::ExpressionOrText) const {
        Child* first = nullptr;
        VisitEntries(guid, means, [&first](Child& child) {
            first = &child;
            return true;
        });
        return first;
    }

    /// The entries that a key with a quote selects. They are kept until the result changes.
    const std::vector<Child*>& SelectionOf(std::string_view guid) const {
        if (selection_ && selection_->guid == guid) return selection_->entries;
        const KeyExpression expression(guid);
        const auto document = expression.ReadsContent() ? TreeOf(*this) : TreeOfAttributes();
        const std::vector<pugi::xml_node> selected = expression.Select(*document);
        Selection selection{std::string(guid), {}};
        // The entries and the "data" elements are the same, in the same order.
        auto next = selected.begin();
        auto child = children_.begin();
        for (const pugi::xml_node& element : document->document_element().children("data")) {
            if (next == selected.end()) break;
            if (element.type() != pugi::node_element) continue;
            while (!child->isEntry) ++child;
            if (element == *next) {
                selection.entries.push_back(&*child);
                ++next;
            }
            ++child;
        }
        selection_ = std::move(selection);
        return selection_->entries;
    }

    /// A tree of the entries without what they hold.
    std::shared_ptr<pugi::xml_document> TreeOfAttributes() const {
        auto document = std::make_shared<pugi::xml_document>();
        pugi::xml_node root = document->append_child(kRootName);
        bool isComplete = static_cast<bool>(root);
        for (const Child& child : children_) {
            if (!child.isEntry) continue;
            pugi::xml_node element = root.append_child("data");
            isComplete = isComplete && element;
            for (const auto& [name, value] : child.entry.attributes) {
                isComplete = isComplete && element.append_attribute(name.c_str()).set_value(value.c_str());
            }
        }
        if (!isComplete) throw std::bad_alloc();
        return document;
    }

    void FillIndex() const {
        if (isIndexed_) return;
        try {
            for (Child& child : children_) AddToIndex(child);
            isIndexed_ = true;
        } catch (...) {
            byKey_.clear();  // half an index finds half the entries
            throw;
        }
    }

    void AddToIndex(Child& child) const {
        if (const std::string* const key = KeyOf(child)) byKey_.try_emplace({*key, child.number}, &child);
    }

    void ForgetIndex() const {
        byKey_.clear();
        isIndexed_ = false;
    }

    void Forget() {
        ForgetIndex();
        selection_.reset();
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
    mutable Children children_;  // never moved: there may be millions
    mutable std::uint64_t nextNumber_ = 0;
    // By key, then in document order. The keys are views of the entries' attributes.
    mutable std::map<std::pair<std::string_view, std::uint64_t>, Child*> byKey_;
    mutable bool isIndexed_ = false;
    struct Selection {
        std::string guid;
        std::vector<Child*> entries;
    };
    mutable std::optional<Selection> selection_;  // the last one
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
        Child& child = content_.AddChild();
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
