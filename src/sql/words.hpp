#pragma once

#include <algorithm>
#include <initializer_list>
#include <string_view>

#include "sql/lexer.hpp"

namespace halvtiv::sql {

/// Whether a token is one of some keywords, given in lower case.
inline bool IsAnyWord(const Token& token, std::initializer_list<std::string_view> lowerCase) noexcept {
    return token.kind == Token::Kind::Word &&
           std::any_of(lowerCase.begin(), lowerCase.end(), [&](auto word) { return token.IsWord(word); });
}

}  // namespace halvtiv::sql
