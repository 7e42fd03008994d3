#include "platform/xml_writer.hpp"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "platform/utf8.hpp"
#include "platform/xml_reader.hpp"

namespace halvtiv::platform {

namespace {

/// What a byte needs when it is written.
enum class ByteClass : std::uint8_t {
    Plain,
    Escape,     // has a reference of its own
    Multibyte,  // begins or continues a UTF-8 sequence
    Refused     // a control character
};

struct Escapes {
    std::array<ByteClass, 256> classes{};
    std::array<std::string_view, 256> references{};

    constexpr explicit Escapes(bool attribute) {
        for (std::size_t byte = 0; byte < 0x20; ++byte) classes[byte] = ByteClass::Refused;
        for (std::size_t byte = 0x80; byte < 0x100; ++byte) classes[byte] = ByteClass::Multibyte;
        classes['\t'] = classes['\n'] = ByteClass::Plain;
        Add('&', "&amp;");
        Add('<', "&lt;");
        Add('>', "&gt;");
        Add('\r', "&#13;");
        if (attribute) {
            Add('"', "&quot;");
            Add('\t', "&#9;");
            Add('\n', "&#10;");
        }
    }
    constexpr void Add(unsigned char byte, std::string_view reference) {
        classes[byte] = ByteClass::Escape;
        references[byte] = reference;
    }
};

constexpr Escapes kAttributeEscapes(true);
constexpr Escapes kTextEscapes(false);
constexpr std::size_t kLongestReference = 6;

#if defined(__SSE2__)

/// A bit for each byte that needs nothing.
inline unsigned PlainBits(__m128i bytes) noexcept {
    const __m128i fromBlank = _mm_cmpgt_epi8(bytes, _mm_set1_epi8(0x1F));  // signed: no byte from 0x80 on is
    const __m128i special = _mm_or_si128(
        _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('&'))),
        _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('<')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('>'))));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_andnot_si128(special, fromBlank)));
}

template <std::size_t kSize>
__m128i Load(const unsigned char* from) noexcept {
    if constexpr (kSize == 16) return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    if constexpr (kSize == 8) return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from));
    std::int32_t word = 0;
    std::memcpy(&word, from, sizeof word);
    return _mm_cvtsi32_si128(word);
}

/// Copies kSize bytes and returns how many at their front need nothing. Writes 16.
template <std::size_t kSize>
std::size_t CopyBlock(const unsigned char* from, char* to) noexcept {
    const __m128i bytes = Load<kSize>(from);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
    return std::min(kSize, static_cast<std::size_t>(std::countr_one(PlainBits(bytes))));
}

/// Copies in blocks, the last one over the end of the one before it.
template <std::size_t kSize>
std::size_t CopyBlocks(const unsigned char* from, std::size_t count, char* to) noexcept {
    std::size_t done = 0;
    do {
        const std::size_t plain = CopyBlock<kSize>(from + done, to + done);
        done += plain;
        if (plain < kSize) return done;
    } while (count - done >= kSize);
    if (done == count) return count;
    const std::size_t last = count - kSize;
    return last + CopyBlock<kSize>(from + last, to + last);
}

#endif

/// Copies bytes that need nothing, 16 at a time, and returns how many there were. Where it writes there is
/// room for 16 bytes more than `count`.
inline std::size_t CopyPlain(const unsigned char* from, std::size_t count, char* to) noexcept {
#if defined(__SSE2__)
    if (count >= 16) return CopyBlocks<16>(from, count, to);
    if (count >= 8) return CopyBlocks<8>(from, count, to);
    if (count >= 4) return CopyBlocks<4>(from, count, to);
#endif
    std::size_t done = 0;
    while (done < count && kAttributeEscapes.classes[from[done]] == ByteClass::Plain) {
        to[done] = static_cast<char>(from[done]);
        ++done;
    }
    return done;
}

bool AppendEscaped(TextBuffer& xml, std::string_view text, const Escapes& escapes) {
    constexpr std::size_t kBlock = 4096;  // bounds the room asked for at once
    const std::size_t before = xml.Size();
    const auto* bytes = reinterpret_cast<const unsigned char*>(text.data());
    std::size_t left = text.size();
    while (left > 0) {
        const std::size_t block = std::min(left, kBlock);
        char* const start = xml.Reserve(block * kLongestReference + 16);
        char* to = start;
        std::size_t done = 0;
        while (done < block) {
            const std::size_t plain = CopyPlain(bytes + done, block - done, to);
            done += plain;
            to += plain;
            if (done >= block) break;
            const unsigned char byte = bytes[done];
            switch (escapes.classes[byte]) {
                case ByteClass::Plain:
                    *to++ = static_cast<char>(byte);
                    ++done;
                    break;
                case ByteClass::Escape: {
                    const std::string_view reference = escapes.references[byte];
                    std::memcpy(to, reference.data(), reference.size());
                    to += reference.size();
                    ++done;
                    break;
                }
                case ByteClass::Multibyte:
                    do {
                        const std::size_t length = Utf8Length(bytes + done, left - done);
                        if (length == 0) {
                            xml.CutTo(before);
                            return false;
                        }
                        std::memcpy(to, bytes + done, length);
                        to += length;
                        done += length;
                    } while (done < block && bytes[done] >= 0x80);
                    break;
                case ByteClass::Refused:
                    xml.CutTo(before);
                    return false;
            }
        }
        xml.Advance(static_cast<std::size_t>(to - start));
        bytes += done;
        left -= done;
    }
    return true;
}

bool AppendAttributes(TextBuffer& xml, const pugi::xml_node& node) {
    for (const pugi::xml_attribute attribute : node.attributes()) {
        if (!IsXmlName(attribute.name()) || !AppendXmlAttribute(xml, attribute.name(), attribute.value())) {
            return false;
        }
    }
    return true;
}

/// What stands before a node's children; also all of a node that has none.
bool AppendOpening(TextBuffer& xml, const pugi::xml_node& node) {
    switch (node.type()) {
        case pugi::node_element:
            if (!IsXmlName(node.name())) return false;
            xml.Append('<');
            xml.Append(node.name());
            if (!AppendAttributes(xml, node)) return false;
            xml.Append(node.first_child() ? ">" : "/>");
            return true;
        case pugi::node_pcdata:
        case pugi::node_cdata:
            return AppendXmlElementText(xml, node.value());
        case pugi::node_comment: {
            const std::string_view text = node.value();
            if (text.find("--") != text.npos || text.ends_with('-')) return false;
            xml.Append("<!--");
            xml.Append(text);
            xml.Append("-->");
            return true;
        }
        case pugi::node_pi: {
            const std::string_view data = node.value();
            if (!IsXmlName(node.name()) || data.find("?>") != data.npos) return false;
            xml.Append("<?");
            xml.Append(node.name());
            if (!data.empty()) xml.Append(' ');
            xml.Append(data);
            xml.Append("?>");
            return true;
        }
        default:
            return true;  // a document itself, and a declaration: only what they hold is written
    }
}

void AppendClosing(TextBuffer& xml, const pugi::xml_node& node) {
    if (node.type() != pugi::node_element || !node.first_child()) return;
    xml.Append("</");
    xml.Append(node.name());
    xml.Append('>');
}

}  // namespace

bool AppendXmlAttributeValue(TextBuffer& xml, std::string_view value) {
    return AppendEscaped(xml, value, kAttributeEscapes);
}

bool AppendXmlAttribute(TextBuffer& xml, std::string_view name, std::string_view value) {
    const std::size_t before = xml.Size();
    xml.Append(' ');
    xml.Append(name);
    xml.Append("=\"");
    if (!AppendXmlAttributeValue(xml, value)) {
        xml.CutTo(before);
        return false;
    }
    xml.Append('"');
    return true;
}

bool AppendXmlElementText(TextBuffer& xml, std::string_view text) {
    return AppendEscaped(xml, text, kTextEscapes);
}

// Walks without recursion: a client's own tree may be of any depth.
bool AppendXmlNode(TextBuffer& xml, const pugi::xml_node& node) {
    const std::size_t before = xml.Size();
    pugi::xml_node at = node;
    while (at) {
        if (!AppendOpening(xml, at)) {
            xml.CutTo(before);
            return false;
        }
        if (const pugi::xml_node child = at.first_child()) {
            at = child;
            continue;
        }
        while (at != node && !at.next_sibling()) {
            at = at.parent();
            AppendClosing(xml, at);
        }
        if (at == node) break;
        at = at.next_sibling();
    }
    return true;
}

bool IsXmlName(std::string_view name) {
    const auto isLetter = [](char byte) {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_' || byte == ':';
    };
    const auto isFurther = [](char byte) {
        return (byte >= '0' && byte <= '9') || byte == '-' || byte == '.';
    };
    bool isPlain = true;
    for (std::size_t at = 0; at < name.size(); ++at) {
        if (static_cast<unsigned char>(name[at]) >= 0x80) {
            isPlain = false;
        } else if (!isLetter(name[at]) && !(at > 0 && isFurther(name[at]))) {
            return false;
        }
    }
    if (isPlain) return !name.empty();
    // Which letters of other scripts count is the reader's to say.
    XmlHandler ignored;
    return ReadXmlText("<" + std::string(name) + "/>", ignored);
}

}  // namespace halvtiv::platform
