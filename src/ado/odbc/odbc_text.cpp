#include "ado/odbc/odbc_text.hpp"

#include <algorithm>

namespace halvtiv::ado {
namespace {

constexpr bool IsHighSurrogate(SQLWCHAR unit) noexcept {
    return unit >= 0xD800 && unit < 0xDC00;
}

constexpr bool IsLowSurrogate(SQLWCHAR unit) noexcept {
    return unit >= 0xDC00 && unit < 0xE000;
}

constexpr std::size_t LengthFromLead(unsigned char lead) noexcept {
    if (lead < 0x80) return 1;
    if (lead >= 0xF0) return 4;
    if (lead >= 0xE0) return 3;
    return lead >= 0xC0 ? 2 : 1;
}

void AppendCharacter(std::string& utf8, unsigned int character) {
    const auto append = [&](unsigned int byte) { utf8 += static_cast<char>(byte); };
    if (character < 0x80) {
        append(character);
    } else if (character < 0x800) {
        append(0xC0 | (character >> 6));
        append(0x80 | (character & 0x3F));
    } else if (character < 0x10000) {
        append(0xE0 | (character >> 12));
        append(0x80 | ((character >> 6) & 0x3F));
        append(0x80 | (character & 0x3F));
    } else {
        append(0xF0 | (character >> 18));
        append(0x80 | ((character >> 12) & 0x3F));
        append(0x80 | ((character >> 6) & 0x3F));
        append(0x80 | (character & 0x3F));
    }
}

}  // namespace

// Bytes that are not UTF-8 become U+FFFD: no wide driver could take them.
std::vector<SQLWCHAR> ToWide(std::string_view utf8) {
    std::vector<SQLWCHAR> wide;
    wide.reserve(utf8.size() + 1);
    for (std::size_t i = 0; i < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const std::size_t length = LengthFromLead(lead);
        if (length == 1) {
            wide.push_back(lead < 0x80 ? lead : SQLWCHAR{0xFFFD});
            ++i;
            continue;
        }
        unsigned int character = lead & (0xFFU >> (length + 1));
        std::size_t read = 1;
        for (; read < length && i + read < utf8.size(); ++read) {
            const auto next = static_cast<unsigned char>(utf8[i + read]);
            if ((next & 0xC0) != 0x80) break;
            character = (character << 6) | (next & 0x3F);
        }
        i += read;
        if (read < length || character > 0x10FFFF) {
            wide.push_back(0xFFFD);
        } else if (character >= 0x10000) {
            wide.push_back(static_cast<SQLWCHAR>(0xD800 + ((character - 0x10000) >> 10)));
            wide.push_back(static_cast<SQLWCHAR>(0xDC00 + ((character - 0x10000) & 0x3FF)));
        } else {
            wide.push_back(static_cast<SQLWCHAR>(character));
        }
    }
    wide.push_back(0);
    return wide;
}

void AppendUtf8(std::string& utf8, std::span<const SQLWCHAR> wide) {
    WideTextReader reader;
    reader.Append(utf8, wide);
    reader.Finish(utf8);
}

void WideTextReader::Append(std::string& utf8, std::span<const SQLWCHAR> piece) {
    for (const SQLWCHAR unit : piece) {
        if (unit < 0x80 && held_ == 0) {
            utf8 += static_cast<char>(unit);
            continue;
        }
        if (held_ != 0 && IsLowSurrogate(unit)) {
            AppendCharacter(utf8, 0x10000U + ((held_ - 0xD800U) << 10) + (unit - 0xDC00U));
            held_ = 0;
            continue;
        }
        Finish(utf8);
        if (IsHighSurrogate(unit)) {
            held_ = unit;
        } else {
            AppendCharacter(utf8, unit);
        }
    }
}

void WideTextReader::Finish(std::string& utf8) {
    if (held_ != 0) AppendCharacter(utf8, held_);
    held_ = 0;
}

std::size_t IncompleteTail(std::string_view utf8) noexcept {
    for (std::size_t back = 1; back <= std::min<std::size_t>(3, utf8.size()); ++back) {
        const auto byte = static_cast<unsigned char>(utf8[utf8.size() - back]);
        if ((byte & 0xC0) == 0x80) continue;
        return LengthFromLead(byte) > back ? back : 0;
    }
    return 0;
}

}  // namespace halvtiv::ado
