#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/text_buffer.hpp"

namespace halvtiv {

/// Where the rows of an entry stand in its text: found once, then looked up. Each member is given the same
/// text.
class RowIndex {
public:
    explicit RowIndex(const platform::TextBuffer& content);

    bool Empty() const noexcept { return rows_.empty(); }
    /// The markup of the first row with that "index"; nothing when there is none.
    std::optional<std::string_view> Find(const platform::TextBuffer& content, std::string_view index) const;
    /// The "index" of the last row, "0" when it has none. There must be a row.
    std::string LastIndex(const platform::TextBuffer& content) const;

private:
    struct Place {
        std::size_t position;
        std::size_t size;
    };
    static std::string_view Markup(const platform::TextBuffer& content, const Place& place);

    std::vector<Place> rows_;
    bool regular_ = true;                                   // the rows are numbered 0, 1, 2, ... without gaps
    std::unordered_map<std::string, std::size_t> byIndex_;  // only for rows that are not
};

}  // namespace halvtiv
