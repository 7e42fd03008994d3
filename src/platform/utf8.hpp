#pragma once

#include <cstddef>

namespace halvtiv::platform {

/// Bytes of the character beyond ASCII at the start of `bytes`, of which there is at least one; 0 where there
/// is none that XML can carry.
inline std::size_t Utf8Length(const unsigned char* bytes, std::size_t available) noexcept {
    const unsigned char first = bytes[0];
    const auto continues = [&](std::size_t index) { return (bytes[index] & 0xC0) == 0x80; };
    if (first >= 0xC2 && first <= 0xDF) return available >= 2 && continues(1) ? 2 : 0;
    if (first >= 0xE0 && first <= 0xEF) {
        if (available < 3 || !continues(1) || !continues(2)) return 0;
        if (first == 0xE0 && bytes[1] < 0xA0) return 0;                       // overlong
        if (first == 0xED && bytes[1] > 0x9F) return 0;                       // surrogate
        if (first == 0xEF && bytes[1] == 0xBF && bytes[2] >= 0xBE) return 0;  // U+FFFE, U+FFFF
        return 3;
    }
    if (first >= 0xF0 && first <= 0xF4) {
        if (available < 4 || !continues(1) || !continues(2) || !continues(3)) return 0;
        if (first == 0xF0 && bytes[1] < 0x90) return 0;  // overlong
        if (first == 0xF4 && bytes[1] > 0x8F) return 0;  // beyond U+10FFFF
        return 4;
    }
    return 0;
}

}  // namespace halvtiv::platform
