#pragma once

#include <string_view>

namespace halvtiv::sql {

inline constexpr std::string_view kBlanks = " \t\r\n\f\v";

constexpr bool IsBlank(char c) noexcept {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr char LowerAscii(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool IsDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

/// A letter, `_`, or a byte of a character beyond ASCII.
constexpr bool IsLetter(char c) noexcept {
    const char lower = LowerAscii(c);
    return (lower >= 'a' && lower <= 'z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

}  // namespace halvtiv::sql
