#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <pugixml.hpp>

#include "platform/text_buffer.hpp"

namespace halvtiv {

/// One entry of a result: a "data" element, its attributes apart from what it holds.
struct ResultEntry {
    std::vector<std::pair<std::string, std::string>> attributes;  ///< unescaped, in document order
    platform::TextBuffer content;  ///< the markup inside; every child in one run

    /// The attribute's value; "" when there is none.
    std::string_view Attribute(std::string_view name) const;
    /// Appends the whole element.
    void AppendTo(platform::TextBuffer& xml) const;
};

/// What a key is: part of an expression where it has a quote (`KeyExpression`), or always a plain text.
enum class KeyMeans { ExpressionOrText, Text };

/// What a result's document holds, in one of two forms: as text, or as a tree that somebody may hold and
/// change.
///
/// Look-ups take the first match in document order. Everything here raises its errors.
class ResultContent {
public:
    virtual ~ResultContent() = default;

    /// An attribute of the root; "" when it has none.
    virtual std::string RootAttribute(const char* name) const = 0;
    virtual void SetRootAttribute(const char* name, std::string_view value) = 0;

    /// The "type" of an entry; nothing when there is no such entry.
    virtual std::optional<std::string> EntryType(std::string_view guid) const = 0;
    /// The "index" of an entry's last row, "0" when it has none; nothing when there is no row.
    virtual std::optional<std::string> LastRowIndex(std::string_view guid) const = 0;
    /// The markup of a row, of an entry; nothing when there is none.
    virtual std::optional<std::string> RowXml(std::string_view guid, std::int32_t index) const = 0;
    virtual std::optional<std::string> EntryXml(std::string_view guid) const = 0;

    /// False when there is no such entry.
    virtual bool RenameEntry(std::string_view oldGuid, std::string_view newGuid, KeyMeans means) = 0;
    virtual void RemoveEntries(std::string_view guid, KeyMeans means) = 0;
    virtual void AppendEntry(ResultEntry entry) = 0;
    /// Appends all of them or, when it fails, none.
    virtual void AppendEntries(std::vector<ResultEntry> entries) = 0;

    /// The entries, in document order.
    virtual std::vector<ResultEntry> CopyEntries() const = 0;
    /// The same for a content that is thrown away afterwards: without a copy where that can be.
    virtual std::vector<ResultEntry> TakeEntries() = 0;

    /// Appends the document's markup to a string that it reserves first.
    virtual void CopyTo(std::string& xml) const = 0;
    /// The same, giving the memory of this content back on the way; what is left is an empty document.
    virtual void MoveTo(std::string& xml) = 0;
    virtual platform::TextBuffer ToText() const = 0;
};

/// An empty result.
std::unique_ptr<ResultContent> NewTextContent();
/// A result from XML text; null when the text is refused.
std::unique_ptr<ResultContent> ParseTextContent(std::string_view xml);
/// A tree of what a result holds, made from its own text.
std::shared_ptr<pugi::xml_document> TreeOf(const ResultContent& content);
/// A result on a tree that others may hold.
std::unique_ptr<ResultContent> NewTreeContent(std::shared_ptr<pugi::xml_document> document);

}  // namespace halvtiv
