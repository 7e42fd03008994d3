#include "platform/date_time.hpp"

#include <cstdint>
#include <cstring>

#include "platform/text.hpp"

namespace halvtiv::platform {

namespace {

/// Eight bytes of a text.
std::uint64_t WordAt(std::string_view text, std::size_t at) noexcept {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data() + at, sizeof word);
    return word;
}

// Reads a text from its front; a step that does not fit leaves the text as it was.
class DateReader {
public:
    explicit DateReader(std::string_view text) noexcept : rest_(text) {}

    bool AtEnd() const noexcept { return rest_.empty(); }

    bool Skip(char character) noexcept {
        if (!rest_.starts_with(character)) return false;
        rest_.remove_prefix(1);
        return true;
    }

    /// Exactly `count` digits with a value in that range.
    bool Digits(std::size_t count, std::int32_t lowest, std::int32_t highest, std::int32_t& value) noexcept {
        if (rest_.size() < count) return false;
        std::int32_t number = 0;
        for (const char character : rest_.substr(0, count)) {
            if (!IsDigit(character)) return false;
            number = number * 10 + (character - '0');
        }
        if (number < lowest || number > highest) return false;
        rest_.remove_prefix(count);
        value = number;
        return true;
    }

    /// One to nine digits after the second's point.
    bool Fraction(std::int32_t& nanosecond) noexcept {
        std::size_t count = 0;
        std::int32_t number = 0;
        while (count < rest_.size() && IsDigit(rest_[count])) {
            if (++count > 9) return false;
            number = number * 10 + (rest_[count - 1] - '0');
        }
        if (count == 0) return false;
        rest_.remove_prefix(count);
        for (; count < 9; ++count) number *= 10;
        nanosecond = number;
        return true;
    }

    bool LooksLikeTime() const noexcept { return rest_.size() > 2 && rest_[2] == ':'; }

private:
    static bool IsDigit(char character) noexcept { return character >= '0' && character <= '9'; }

    std::string_view rest_;
};

std::int32_t DaysOfMonth(std::int32_t year, std::int32_t month) noexcept {
    if (month == 2) return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

bool ReadDate(DateReader& reader, DateTime& value) noexcept {
    if (!reader.Digits(4, 1, 9999, value.Year)) return false;
    const char separator = reader.Skip('/') ? '/' : '-';
    if (separator == '-' && !reader.Skip('-')) return false;
    return reader.Digits(2, 1, 12, value.Month) && reader.Skip(separator) &&
           reader.Digits(2, 1, DaysOfMonth(value.Year, value.Month), value.Day);
}

bool ReadTime(DateReader& reader, DateTime& value) noexcept {
    if (!reader.Digits(2, 0, 23, value.Hour) || !reader.Skip(':')) return false;
    if (!reader.Digits(2, 0, 59, value.Minute)) return false;
    if (!reader.Skip(':')) return true;
    if (!reader.Digits(2, 0, 59, value.Second)) return false;
    return !reader.Skip('.') || reader.Fraction(value.Nanosecond);
}

bool ReadOffset(DateReader& reader) noexcept {
    if (reader.Skip('Z')) return true;
    std::int32_t unused = 0;
    if (!reader.Skip('+') && !reader.Skip('-')) return false;
    if (!reader.Digits(2, 0, 23, unused)) return false;
    return reader.AtEnd() || ((reader.Skip(':') || true) && reader.Digits(2, 0, 59, unused));
}

char* PutDigits(char* to, std::int32_t value, int count) noexcept {
    auto rest = static_cast<std::uint32_t>(value);
    for (char* at = to + count; at != to; rest /= 10) *--at = static_cast<char>('0' + rest % 10);
    return to + count;
}

char* PutDate(char* to, const DateTime& value) noexcept {
    to = PutDigits(to, value.Year, 4);
    *to++ = '-';
    to = PutDigits(to, value.Month, 2);
    *to++ = '-';
    return PutDigits(to, value.Day, 2);
}

char* PutTime(char* to, const DateTime& value) noexcept {
    to = PutDigits(to, value.Hour, 2);
    *to++ = ':';
    to = PutDigits(to, value.Minute, 2);
    *to++ = ':';
    to = PutDigits(to, value.Second, 2);
    if (value.Nanosecond == 0) return to;
    *to++ = '.';
    to = PutDigits(to, value.Nanosecond, 9);
    while (to[-1] == '0') --to;
    return to;
}

}  // namespace

std::optional<ParsedDateTime> ParseDateTime(std::string_view text) {
    DateReader reader(TrimBlanks(text));
    ParsedDateTime parsed;
    DateTime& value = parsed.value;

    if (reader.LooksLikeTime()) {
        value.Which = DateTime::Parts::Time;
    } else {
        if (!ReadDate(reader, value)) return std::nullopt;
        if (reader.AtEnd()) {
            value.Which = DateTime::Parts::Date;
            return parsed;
        }
        if (!reader.Skip(' ') && !reader.Skip('T')) return std::nullopt;
    }
    if (!ReadTime(reader, value)) return std::nullopt;
    if (!reader.AtEnd()) {
        if (!ReadOffset(reader) || !reader.AtEnd()) return std::nullopt;
        parsed.hasOffset = true;
    }
    return parsed;
}

std::string_view DateTimeText(const DateTime& value, char (&buffer)[kDateTimeTextSize]) noexcept {
    char* end = buffer;
    if (value.Which != DateTime::Parts::Time) end = PutDate(end, value);
    if (value.Which == DateTime::Parts::DateAndTime) *end++ = ' ';
    if (value.Which != DateTime::Parts::Date) end = PutTime(end, value);
    return {buffer, end};
}

bool IsPlainTimestamp(std::string_view text) noexcept {
    static constexpr std::string_view kForm = "0000-00-00 00:00:00";
    // Added to how far a byte is from the form, this sets the top bit: from 10 on, or from 1 on.
    static constexpr std::string_view kBeyond =
        "\x76\x76\x76\x76\x7F\x76\x76\x7F\x76\x76\x7F\x76\x76\x7F\x76\x76\x7F\x76\x76";
    if (text.size() != kForm.size()) return false;
    std::uint64_t outside = 0;
    for (const std::size_t at : {0U, 8U, 11U}) {
        const std::uint64_t apart = WordAt(text, at) ^ WordAt(kForm, at);
        outside |= apart | (apart + WordAt(kBeyond, at));
    }
    if ((outside & 0x8080808080808080) != 0) return false;
    const auto number = [text](std::size_t at) { return (text[at] - '0') * 10 + (text[at + 1] - '0'); };
    const int year = number(0) * 100 + number(2);
    const int month = number(5);
    const int day = number(8);
    return year >= 1 && month >= 1 && month <= 12 && day >= 1 && day <= DaysOfMonth(year, month) &&
           number(11) < 24 && number(14) < 60 && number(17) < 60;
}

}  // namespace halvtiv::platform
