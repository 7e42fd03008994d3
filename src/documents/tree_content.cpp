#include <new>
#include <string>
#include <string_view>
#include <utility>

#include "documents/key_expression.hpp"
#include "documents/result_content.hpp"
#include "foundation/xml_utils.hpp"
#include "platform/run_time_error.hpp"
#include "platform/xml_reader.hpp"
#include "platform/xml_writer.hpp"

namespace halvtiv {

namespace {

using platform::RaiseRunTimeError;
using platform::RunTimeError;
using platform::TextBuffer;

// Our own text as a tree: nothing is dropped or normalised on the way.
constexpr unsigned kTreeOptions = pugi::parse_escapes | pugi::parse_comments | pugi::parse_pi;

TextBuffer MarkupOf(const pugi::xml_node& node) {
    TextBuffer xml(1024);
    if (!platform::AppendXmlNode(xml, node)) RaiseRunTimeError(RunTimeError::InvalidArgument);
    return xml;
}

void RequireParsed(const pugi::xml_parse_result& parsed) {
    if (parsed.status == pugi::status_out_of_memory) throw std::bad_alloc();
    if (!parsed) RaiseRunTimeError(RunTimeError::InvalidArgument);
}

class TreeContent final : public ResultContent {
public:
    explicit TreeContent(std::shared_ptr<pugi::xml_document> document) : document_(std::move(document)) {}

    std::string RootAttribute(const char* name) const override {
        return std::string(GetXmlAttribute(document_->document_element(), name));
    }

    void SetRootAttribute(const char* name, std::string_view value) override {
        pugi::xml_node root = RequireRoot();
        SetAttribute(root, name, value);
    }

    std::optional<std::string> EntryType(std::string_view guid) const override {
        const pugi::xml_node entry = FindEntry(guid);
        if (!entry) return std::nullopt;
        return std::string(GetXmlAttribute(entry, "type"));
    }

    std::optional<std::string> LastRowIndex(std::string_view guid) const override {
        const pugi::xml_node row = LastRow(guid);
        if (!row) return std::nullopt;
        return std::string(GetXmlAttribute(row, "index", "0"));
    }

    std::optional<std::string> RowXml(std::string_view guid, std::int32_t index) const override {
        const pugi::xml_node row = FindRow(guid, std::to_string(index));
        if (!row) return std::nullopt;
        return MarkupOf(row).ToString();
    }

    std::optional<std::string> EntryXml(std::string_view guid) const override {
        const pugi::xml_node entry = FindEntry(guid);
        if (!entry) return std::nullopt;
        return MarkupOf(entry).ToString();
    }

    bool RenameEntry(std::string_view oldGuid, std::string_view newGuid, KeyMeans means) override {
        pugi::xml_node entry = FindEntry(oldGuid, means);
        if (!entry) return false;
        SetAttribute(entry, "guid", newGuid);
        return true;
    }

    void RemoveEntries(std::string_view guid, KeyMeans means) override {
        std::vector<pugi::xml_node> removed;
        VisitEntries(guid, means, [&removed](const pugi::xml_node& entry) {
            removed.push_back(entry);
            return false;
        });
        for (const pugi::xml_node& entry : removed) entry.parent().remove_child(entry);
    }

    void AppendEntry(ResultEntry entry) override {
        TextBuffer xml;
        entry.AppendTo(xml);
        const std::string text = xml.ToString();
        RequireParsed(
            RequireRoot().append_buffer(text.data(), text.size(), kTreeOptions, pugi::encoding_utf8));
    }

    void AppendEntries(std::vector<ResultEntry> entries) override {
        pugi::xml_node root = RequireRoot();
        const pugi::xml_node last = root.last_child();
        try {
            for (ResultEntry& entry : entries) AppendEntry(std::move(entry));
        } catch (...) {
            while (root.last_child() != last) root.remove_child(root.last_child());
            throw;
        }
    }

    std::vector<ResultEntry> CopyEntries() const override {
        std::vector<ResultEntry> entries;
        for (const pugi::xml_node& element : document_->document_element().children("data")) {
            ResultEntry& entry = entries.emplace_back();
            for (const pugi::xml_attribute& attribute : element.attributes()) {
                entry.attributes.emplace_back(attribute.name(), attribute.value());
            }
            for (const pugi::xml_node& child : element.children()) {
                entry.content.BeginRun();
                if (!platform::AppendXmlNode(entry.content, child)) {
                    RaiseRunTimeError(RunTimeError::InvalidArgument);
                }
            }
        }
        if (!entries.empty()) ToText();  // refuses what is no XML
        return entries;
    }

    std::vector<ResultEntry> TakeEntries() override { return CopyEntries(); }

    void CopyTo(std::string& xml) const override {
        const TextBuffer text = ToText();
        xml.reserve(xml.size() + text.Size());
        text.CopyTo(xml);
    }

    void MoveTo(std::string& xml) override { CopyTo(xml); }

    // The document is in other hands, too: what they have made of it may be no XML.
    TextBuffer ToText() const override {
        TextBuffer text = MarkupOf(*document_);
        platform::XmlHandler ignored;
        if (!platform::ReadXmlText(text.ToString(), ignored))
            RaiseRunTimeError(RunTimeError::InvalidArgument);
        return text;
    }

private:
    /// Visits the entries under a key, in document order, until `visit` answers true.
    template <typename Visit>
    void VisitEntries(std::string_view guid, KeyMeans means, Visit&& visit) const {
        if (means == KeyMeans::ExpressionOrText && KeyExpression::Is(guid)) {
            for (const pugi::xml_node& entry : KeyExpression(guid).Select(*document_)) {
                if (visit(entry)) return;
            }
            return;
        }
        for (const pugi::xml_node& root : document_->children()) {
            for (const pugi::xml_node& entry : root.children("data")) {
                const pugi::xml_attribute key = entry.attribute("guid");
                if (key && key.value() == guid && visit(entry)) return;
            }
        }
    }

    static bool IsRow(const pugi::xml_node& node) {
        return node.type() == pugi::node_element && std::string_view(node.name()) == "row";
    }

    /// The first node that `find` gives for an entry under the key.
    template <typename Find>
    pugi::xml_node FirstOf(std::string_view guid, KeyMeans means, Find&& find) const {
        pugi::xml_node found;
        VisitEntries(guid, means, [&](const pugi::xml_node& entry) {
            found = find(entry);
            return static_cast<bool>(found);
        });
        return found;
    }

    pugi::xml_node FindEntry(std::string_view guid, KeyMeans means = KeyMeans::ExpressionOrText) const {
        return FirstOf(guid, means, [](const pugi::xml_node& entry) { return entry; });
    }

    pugi::xml_node FindRow(std::string_view guid, const std::string& index) const {
        return FirstOf(guid, KeyMeans::ExpressionOrText, [&index](const pugi::xml_node& entry) {
            return entry.find_child_by_attribute("row", "index", index.c_str());
        });
    }

    pugi::xml_node LastRow(std::string_view guid) const {
        return FirstOf(guid, KeyMeans::ExpressionOrText, [](const pugi::xml_node& entry) {
            pugi::xml_node row = entry.last_child();
            while (row && !IsRow(row)) row = row.previous_sibling();
            return row;
        });
    }

    static void SetAttribute(pugi::xml_node& element, const char* name, std::string_view value) {
        pugi::xml_attribute attribute = element.attribute(name);
        if (!attribute) attribute = element.append_attribute(name);
        if (!attribute || !attribute.set_value(std::string(value).c_str())) throw std::bad_alloc();
    }

    /// The root may be gone.
    pugi::xml_node RequireRoot() const {
        const pugi::xml_node root = document_->document_element();
        if (!root) RaiseRunTimeError(RunTimeError::ObjectNotSet);
        return root;
    }

    std::shared_ptr<pugi::xml_document> document_;
};

}  // namespace

std::shared_ptr<pugi::xml_document> TreeOf(const ResultContent& content) {
    std::string text;
    content.CopyTo(text);
    auto document = std::make_shared<pugi::xml_document>();
    RequireParsed(document->load_buffer(text.data(), text.size(), kTreeOptions, pugi::encoding_utf8));
    return document;
}

std::unique_ptr<ResultContent> NewTreeContent(std::shared_ptr<pugi::xml_document> document) {
    return std::make_unique<TreeContent>(std::move(document));
}

}  // namespace halvtiv
