#pragma once

#include <sqlite3.h>

#include <array>
#include <bit>
#include <charconv>
#include <cstring>
#include <string_view>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace halvtiv::bench {

/// XML as a program by hand writes it at its best, in blocks of 64 KiB that go to `append(text)`.
template <typename Append>
class BlockWriter {
public:
    explicit BlockWriter(Append append) : append_(std::move(append)) {}
    ~BlockWriter() { Flush(); }
    BlockWriter(const BlockWriter&) = delete;
    BlockWriter& operator=(const BlockWriter&) = delete;

    char* Room(std::size_t count) {
        if (block_.size() - used_ < count) Flush();
        return block_.data() + used_;
    }
    void Use(char* end) { used_ = static_cast<std::size_t>(end - block_.data()); }

    void Put(std::string_view text) {
        char* room = Room(text.size());
        std::memcpy(room, text.data(), text.size());
        Use(room + text.size());
    }

    template <typename Number>
    void PutNumber(Number number) {
        char* room = Room(32);
        Use(std::to_chars(room, room + 32, number).ptr);
    }

    /// A value of less than 4 KiB, escaped; nothing checks that it is UTF-8.
    void PutEscaped(std::string_view text) {
        char* to = Room(text.size() * 6 + 16);
        const char* from = text.data();
        std::size_t left = text.size();
        while (left > 0) {
#if defined(__SSE2__)
            if (left >= 16) {
                const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
                _mm_storeu_si128(reinterpret_cast<__m128i*>(to), bytes);
                const __m128i special = _mm_or_si128(
                    _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('"')),
                                 _mm_cmpeq_epi8(bytes, _mm_set1_epi8('&'))),
                    _mm_or_si128(_mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('<')),
                                              _mm_cmpeq_epi8(bytes, _mm_set1_epi8('>'))),
                                 _mm_cmpeq_epi8(_mm_min_epu8(bytes, _mm_set1_epi8(0x1F)), bytes)));
                const auto mask = static_cast<unsigned>(_mm_movemask_epi8(special));
                const std::size_t plain = mask == 0 ? 16 : static_cast<std::size_t>(std::countr_zero(mask));
                from += plain;
                to += plain;
                left -= plain;
                if (plain == 16) continue;
            }
#endif
            const char byte = *from++;
            --left;
            const std::string_view reference = Reference(byte);
            if (reference.empty()) {
                *to++ = byte;
            } else {
                std::memcpy(to, reference.data(), reference.size());
                to += reference.size();
            }
        }
        Use(to);
    }

private:
    static std::string_view Reference(char byte) {
        switch (byte) {
            case '&':
                return "&amp;";
            case '<':
                return "&lt;";
            case '>':
                return "&gt;";
            case '"':
                return "&quot;";
            case '\t':
                return "&#9;";
            case '\n':
                return "&#10;";
            case '\r':
                return "&#13;";
            default:
                return {};
        }
    }
    void Flush() {
        append_(std::string_view(block_.data(), used_));
        used_ = 0;
    }

    Append append_;
    std::array<char, 65536> block_;
    std::size_t used_ = 0;
};

inline std::string_view TextOf(sqlite3_stmt* row, int column) {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(row, column));
    return {text == nullptr ? "" : text, static_cast<std::size_t>(sqlite3_column_bytes(row, column))};
}

/// The header row and the rows of a prepared `select * from t` of the sample table.
template <typename Writer>
void WriteRowsByHand(sqlite3_stmt* row, Writer& writer) {
    writer.Put(
        "<row index=\"0\">"
        "<col name=\"id\" value=\"integer\"/><col name=\"amount\" value=\"integer\"/>"
        "<col name=\"price\" value=\"double\"/><col name=\"code\" value=\"text\"/>"
        "<col name=\"note\" value=\"text\"/><col name=\"made\" value=\"datetime\"/>"
        "<col name=\"remark\" value=\"text\"/><col name=\"kind\" value=\"integer\"/></row>");
    for (std::int64_t index = 1; sqlite3_step(row) == SQLITE_ROW; ++index) {
        writer.Put("<row index=\"");
        writer.PutNumber(index);
        writer.Put("\"><col name=\"id\" value=\"");
        writer.PutNumber(sqlite3_column_int64(row, 0));
        writer.Put("\"/><col name=\"amount\" value=\"");
        writer.PutNumber(sqlite3_column_int64(row, 1));
        writer.Put("\"/><col name=\"price\" value=\"");
        writer.PutNumber(sqlite3_column_double(row, 2));
        writer.Put("\"/><col name=\"code\" value=\"");
        writer.PutEscaped(TextOf(row, 3));
        writer.Put("\"/><col name=\"note\" value=\"");
        writer.PutEscaped(TextOf(row, 4));
        writer.Put("\"/><col name=\"made\" value=\"");
        writer.PutEscaped(TextOf(row, 5));
        writer.Put("\"/><col name=\"remark\" value=\"");
        writer.PutEscaped(TextOf(row, 6));
        writer.Put("\"/><col name=\"kind\" value=\"");
        writer.PutNumber(sqlite3_column_int64(row, 7));
        writer.Put("\"/></row>");
    }
}

}  // namespace halvtiv::bench
