#include "platform/text.hpp"

#include <utf8proc.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "platform/utf8.hpp"

namespace halvtiv::platform {

namespace {

constexpr bool IsAscii(char character) noexcept {
    return static_cast<unsigned char>(character) < 0x80;
}

constexpr char AsciiLower(char character) noexcept {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
}

constexpr char AsciiUpper(char character) noexcept {
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 32) : character;
}

// The library maps the sharp s to its capital, which simple case mapping does not know.
utf8proc_int32_t SimpleUpper(utf8proc_int32_t character) {
    constexpr utf8proc_int32_t kSharpS = 0xDF;
    return character == kSharpS ? character : utf8proc_toupper(character);
}

template <typename AsciiMap>
std::string MapCase(std::string_view text, AsciiMap asciiMap, utf8proc_int32_t (*map)(utf8proc_int32_t)) {
    // Most names are short and plain: those go through in one sweep.
    std::string mapped(text);
    std::size_t plain = 0;
    while (plain < mapped.size() && IsAscii(mapped[plain])) {
        mapped[plain] = asciiMap(mapped[plain]);
        ++plain;
    }
    if (plain == mapped.size()) return mapped;
    mapped.resize(plain);
    text.remove_prefix(plain);
    while (!text.empty()) {
        if (IsAscii(text.front())) {
            mapped.push_back(asciiMap(text.front()));
            text.remove_prefix(1);
            continue;
        }
        const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
        utf8proc_int32_t character = 0;
        const utf8proc_ssize_t length = utf8proc_iterate(
            bytes, static_cast<utf8proc_ssize_t>(std::min<std::size_t>(text.size(), 4)), &character);
        if (length <= 0) {
            mapped.push_back(text.front());
            text.remove_prefix(1);
            continue;
        }
        utf8proc_uint8_t encoded[4];
        const utf8proc_ssize_t size = utf8proc_encode_char(map(character), encoded);
        mapped.append(reinterpret_cast<const char*>(encoded), static_cast<std::size_t>(size));
        text.remove_prefix(static_cast<std::size_t>(length));
    }
    return mapped;
}

template <typename Find>
std::string Replace(std::string_view text, std::string_view from, std::string_view to, Find find) {
    std::string replaced;
    if (from.empty()) return replaced.assign(text);
    for (;;) {
        const std::size_t at = find(text);
        replaced.append(text.substr(0, at));
        if (at == std::string_view::npos) return replaced;
        replaced.append(to);
        text.remove_prefix(at + from.size());
    }
}

// One character at the front of a text.
struct Character {
    std::size_t length;  // bytes that stand or fall together
    bool carried;        // whether XML can carry it
};

Character FirstCharacter(std::string_view text) noexcept {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.data());
    const auto lead = bytes[0];
    if (lead < 0x80) return {1, lead >= 0x20 || lead == '\t' || lead == '\n' || lead == '\r'};
    if (const std::size_t length = Utf8Length(bytes, text.size()); length > 0) return {length, true};
    const auto isBetween = [&](std::size_t at, unsigned lowest) {
        return at < text.size() && bytes[at] >= lowest && bytes[at] <= 0xBF;
    };
    const bool isSurrogate = lead == 0xED && isBetween(1, 0xA0) && isBetween(2, 0x80);
    const bool isNoCharacter = lead == 0xEF && isBetween(1, 0xBF) && isBetween(2, 0xBE);
    return {isSurrogate || isNoCharacter ? std::size_t{3} : std::size_t{1}, false};
}

// Whether eight bytes are all from U+0020 to U+007F.
bool ArePlain(std::uint64_t word) noexcept {
    constexpr std::uint64_t kHighBits = 0x8080808080808080;
    constexpr std::uint64_t kBlanks = 0x2020202020202020;
    return ((word | (word - kBlanks)) & kHighBits) == 0;
}

// How many bytes at the front XML can carry.
std::size_t CarriedLength(std::string_view text) noexcept {
    std::size_t at = 0;
    while (at < text.size()) {
        std::uint64_t words[2];
        while (text.size() - at >= sizeof words) {
            std::memcpy(words, text.data() + at, sizeof words);
            if (!ArePlain(words[0]) || !ArePlain(words[1])) break;
            at += sizeof words;
        }
        // The next plain stretch is tried again after what stopped this one.
        const std::size_t stop = std::min(text.size(), at + sizeof words);
        while (at < stop) {
            const Character character = FirstCharacter(text.substr(at));
            if (!character.carried) return at;
            at += character.length;
        }
    }
    return at;
}

}  // namespace

std::string ToLower(std::string_view text) {
    return MapCase(
        text, [](char character) { return AsciiLower(character); }, utf8proc_tolower);
}

std::string ToUpper(std::string_view text) {
    return MapCase(
        text, [](char character) { return AsciiUpper(character); }, SimpleUpper);
}

bool EqualIgnoringCase(std::string_view left, std::string_view right) {
    const std::size_t common = std::min(left.size(), right.size());
    for (std::size_t at = 0; at < common; ++at) {
        if (!IsAscii(left[at]) || !IsAscii(right[at])) {
            return ToLower(ToUpper(left.substr(at))) == ToLower(ToUpper(right.substr(at)));
        }
        if (AsciiLower(left[at]) != AsciiLower(right[at])) return false;
    }
    return left.size() == right.size();
}

std::string_view TrimBlanks(std::string_view text) {
    const std::size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to) {
    return Replace(text, from, to, [from](std::string_view rest) { return rest.find(from); });
}

std::string ReplaceAllIgnoringCase(std::string_view text, std::string_view from, std::string_view to) {
    const auto equal = [](char left, char right) { return AsciiLower(left) == AsciiLower(right); };
    return Replace(text, from, to, [&](std::string_view rest) {
        const auto at = std::search(rest.begin(), rest.end(), from.begin(), from.end(), equal);
        return at == rest.end() ? std::string_view::npos : static_cast<std::size_t>(at - rest.begin());
    });
}

bool IsXmlText(std::string_view text) noexcept {
    return CarriedLength(text) == text.size();
}

std::string RepairXmlText(std::string_view text) {
    std::string repaired;
    repaired.reserve(text.size());
    for (;;) {
        const std::size_t good = CarriedLength(text);
        repaired.append(text.substr(0, good));
        text.remove_prefix(good);
        if (text.empty()) return repaired;
        repaired.append("\xEF\xBF\xBD");
        text.remove_prefix(FirstCharacter(text).length);
    }
}

}  // namespace halvtiv::platform
