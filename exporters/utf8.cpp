#include "utf8.hpp"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace halvtiv::exporters {

namespace {

constexpr bool IsContinuation(unsigned char byte) noexcept {
    return (byte & 0xC0) == 0x80;
}

}  // namespace

std::size_t Utf8CharacterSize(std::string_view text) noexcept {
    const auto at = [text](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned char lead = at(0);
    if (lead < 0x80) return 1;
    const std::size_t size = lead < 0xC2 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF5 ? 4 : 0;
    if (size == 0 || text.size() < size) return 0;
    for (std::size_t index = 1; index < size; ++index) {
        if (!IsContinuation(at(index))) return 0;
    }
    const unsigned char second = at(1);
    const bool isWrong = (lead == 0xE0 && second < 0xA0) || (lead == 0xED && second >= 0xA0) ||
                         (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second >= 0x90);
    return isWrong ? 0 : size;
}

bool IsUtf8(std::string_view text) noexcept {
    while (!text.empty()) {
        std::uint64_t eight = 0;
        if (text.size() >= sizeof eight) {
            std::memcpy(&eight, text.data(), sizeof eight);
            if ((eight & 0x8080808080808080U) == 0) {
                text.remove_prefix(sizeof eight);
                continue;
            }
        }
        const std::size_t size = Utf8CharacterSize(text);
        if (size == 0) return false;
        text.remove_prefix(size);
    }
    return true;
}

std::string RepairedUtf8(std::string_view text) {
    std::string repaired;
    repaired.reserve(text.size() + 16);
    while (!text.empty()) {
        const std::size_t size = Utf8CharacterSize(text);
        repaired += size == 0 ? std::string_view("\xEF\xBF\xBD") : text.substr(0, size);
        text.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return repaired;
}

std::size_t Utf16Length(std::string_view text) noexcept {
    std::size_t length = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (!IsContinuation(byte)) length += byte >= 0xF0 ? 2 : 1;
    }
    return length;
}

}  // namespace halvtiv::exporters
