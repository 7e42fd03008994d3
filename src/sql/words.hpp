#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "sql/lexer.hpp"

namespace halvtiv::sql {

/// Whether a token is one of some keywords, given in lower case.
inline bool IsAnyWord(const Token& token, std::initializer_list<std::string_view> lowerCase) noexcept {
    return token.kind == Token::Kind::Word &&
           std::any_of(lowerCase.begin(), lowerCase.end(), [&](auto word) { return token.IsWord(word); });
}

/// Values by keyword, found in one step: for what is asked of every word of a statement.
template <typename Value, std::size_t kCount>
class WordMap {
public:
    constexpr explicit WordMap(const std::array<std::pair<std::string_view, Value>, kCount>& entries) {
        for (const auto& entry : entries) {
            auto slot = SlotOf(entry.first);
            while (!slots_[slot].first.empty()) slot = (slot + 1) % kSlots;
            slots_[slot] = entry;
        }
    }
    /// The value of a keyword; `otherwise` for any other token.
    Value Find(const Token& token, Value otherwise) const noexcept {
        if (token.kind != Token::Kind::Word) return otherwise;
        for (auto slot = SlotOf(token.text); !slots_[slot].first.empty(); slot = (slot + 1) % kSlots) {
            if (token.IsWord(slots_[slot].first)) return slots_[slot].second;
        }
        return otherwise;
    }

private:
    static constexpr std::size_t kSlots = 4 * kCount;

    static constexpr std::size_t SlotOf(std::string_view word) noexcept {
        const auto letter = [](char c) {
            return static_cast<std::size_t>(static_cast<unsigned char>(LowerAscii(c)));
        };
        return (letter(word.front()) * 31 + letter(word.back()) * 7 + word.size()) % kSlots;
    }

    std::array<std::pair<std::string_view, Value>, kSlots> slots_{};
};

}  // namespace halvtiv::sql
