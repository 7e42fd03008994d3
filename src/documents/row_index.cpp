#include <charconv>

#include "documents/row_index.hpp"
#include "platform/number.hpp"

namespace halvtiv {

namespace {

// The texts scanned here come from our own writer: "<" and ">" stand only where they belong to markup, values
// are in double quotes, and every child of an entry lies in one piece.

/// Length of the markup construct (a tag, a comment, a processing instruction) that begins at `at`.
std::size_t ConstructLength(std::string_view text, std::size_t at) {
    const std::string_view rest = text.substr(at);
    if (rest.starts_with("<!--")) return rest.find("-->", 4) + 3;
    if (rest.starts_with("<?")) return rest.find("?>") + 2;
    return rest.find('>') + 1;
}

/// Length of the element that begins at `at`, all it holds included; of a lone construct, its own.
std::size_t NodeLength(std::string_view text, std::size_t at) {
    std::size_t depth = 0;
    std::size_t end = at;
    do {
        end = text.find('<', end);
        const std::size_t length = ConstructLength(text, end);
        const std::string_view construct = text.substr(end, length);
        end += length;
        if (construct[1] == '!' || construct[1] == '?') continue;
        if (construct[1] == '/') {
            --depth;
        } else if (!construct.ends_with("/>")) {
            ++depth;
        }
    } while (depth > 0);
    return end - at;
}

bool IsRow(std::string_view markup) {
    return markup.starts_with("<row") && (markup[4] == ' ' || markup[4] == '>' || markup[4] == '/');
}

/// The "index" of a row's start tag as it is written; nothing when it has none.
std::optional<std::string_view> WrittenIndex(std::string_view markup) {
    std::size_t at = 4;
    while (markup[at] == ' ') {
        const std::size_t nameEnd = markup.find('=', at);
        const std::string_view name = markup.substr(at + 1, nameEnd - at - 1);
        const std::size_t valueEnd = markup.find('"', nameEnd + 2);
        if (name == "index") return markup.substr(nameEnd + 2, valueEnd - nameEnd - 2);
        at = valueEnd + 1;
    }
    return std::nullopt;
}

}  // namespace

RowIndex::RowIndex(const platform::TextBuffer& content) {
    std::size_t pieceStart = 0;
    content.ForEachPiece([&](std::string_view piece) {
        std::size_t at = 0;
        while ((at = piece.find('<', at)) != std::string_view::npos) {
            const std::size_t length = NodeLength(piece, at);
            const std::string_view markup = piece.substr(at, length);
            if (IsRow(markup)) {
                char number[platform::kNumberTextSize];
                const auto expected = platform::IntegerText(static_cast<std::int64_t>(rows_.size()), number);
                regular_ = regular_ && WrittenIndex(markup) == expected;
                rows_.push_back({pieceStart + at, length});
            }
            at += length;
        }
        pieceStart += piece.size();
    });
    if (regular_) return;
    for (std::size_t row = 0; row < rows_.size(); ++row) {
        if (const auto index = WrittenIndex(Markup(content, rows_[row]))) byIndex_.emplace(*index, row);
    }
}

std::string_view RowIndex::Markup(const platform::TextBuffer& content, const Place& place) {
    return content.View(place.position, place.size);
}

std::optional<std::string_view> RowIndex::Find(const platform::TextBuffer& content,
                                               std::string_view index) const {
    std::size_t row = 0;
    if (regular_) {
        const auto [end, error] = std::from_chars(index.data(), index.data() + index.size(), row);
        if (error != std::errc() || end != index.data() + index.size() || row >= rows_.size())
            return std::nullopt;
    } else {
        const auto found = byIndex_.find(std::string(index));
        if (found == byIndex_.end()) return std::nullopt;
        row = found->second;
    }
    return Markup(content, rows_[row]);
}

std::string RowIndex::LastIndex(const platform::TextBuffer& content) const {
    return std::string(WrittenIndex(Markup(content, rows_.back())).value_or("0"));
}

}  // namespace halvtiv
