#pragma once

#include <string_view>

namespace halvtiv::ado {

inline constexpr std::string_view kSqlBlanks = " \t\r\n\f\v";

constexpr char LowerAscii(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool IsSqlDigit(char c) noexcept {
    return c >= '0' && c <= '9';
}

/// Whether every database takes it for a piece of a name or keyword, and not of what stands around.
constexpr bool IsSqlNameCharacter(char c) noexcept {
    const char lower = LowerAscii(c);
    return (lower >= 'a' && lower <= 'z') || IsSqlDigit(c) || c == '_' || c == '$' ||
           static_cast<unsigned char>(c) >= 0x80;
}

}  // namespace halvtiv::ado
