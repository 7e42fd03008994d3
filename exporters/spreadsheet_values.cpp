#include "spreadsheet_values.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "source_columns.hpp"
#include "utf8.hpp"

namespace halvtiv::exporters {

namespace {

/// "007", which as a number would lose its zeros.
bool IsZeroFilled(std::string_view number) {
    if (number.starts_with('-')) number.remove_prefix(1);
    return number.size() > 1 && number[0] == '0' && number[1] >= '0' && number[1] <= '9';
}

template <typename Number>
std::optional<Number> Parse(std::string_view text) {
    if (IsZeroFilled(text)) return std::nullopt;
    Number value{};
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

/// Days since 1970, by the proleptic Gregorian calendar.
std::int64_t DaysSince1970(const DateTime& date) {
    // Years that begin in March have their leap day at the end.
    const std::int64_t year = date.Month > 2 ? date.Year : date.Year - 1;
    const std::int64_t month = (date.Month + 9) % 12;
    const std::int64_t dayOfYear = (153 * month + 2) / 5 + date.Day - 1;
    return year * 365 + year / 4 - year / 100 + year / 400 + dayOfYear - 719468;
}

constexpr std::string_view kFffe = "\xEF\xBF\xBE";
constexpr std::string_view kFfff = "\xEF\xBF\xBF";

/// Whether a character is one that XML cannot carry although it is well-formed UTF-8.
bool IsNoncharacter(std::string_view character) {
    return character == kFffe || character == kFfff;
}

/// Whether a text starts with what stands for a character in a cell: "_x0041_".
bool IsEscape(std::string_view text) {
    constexpr std::size_t kLength = 7;
    return text.size() >= kLength && text.starts_with("_x") && text[kLength - 1] == '_' &&
           text.substr(2, 4).find_first_not_of("0123456789ABCDEFabcdef") == std::string_view::npos;
}

}  // namespace

std::optional<double> ExactInteger(std::string_view text) {
    constexpr std::int64_t kMost = std::int64_t{1} << 53;
    const auto value = Parse<std::int64_t>(text);
    if (!value || *value > kMost || *value < -kMost) return std::nullopt;
    return static_cast<double>(*value);
}

std::optional<double> ExactDecimal(std::string_view text) {
    constexpr std::size_t kMostDigits = 15;
    const std::size_t digits = SignificantDigits(text);
    if (digits == 0 || digits > kMostDigits) return std::nullopt;
    return Parse<double>(text);
}

std::optional<double> FiniteDouble(std::string_view text) {
    const auto value = Parse<double>(text);
    return value && std::isfinite(*value) ? value : std::nullopt;
}

std::optional<double> DateSerial(const DateTime& value) {
    constexpr std::int64_t kDaysTo1970 = 25569;
    constexpr std::int64_t kFirstOfMarch1900 = 61;
    constexpr double kSecondsPerDay = 86400;
    const double time = (value.Hour * 3600 + value.Minute * 60 + value.Second + value.Nanosecond / 1e9);
    // A sheet shows milliseconds: rounded to them, these would be the next day.
    constexpr double kHalfMillisecond = 0.0005;
    if (time >= kSecondsPerDay - kHalfMillisecond) return std::nullopt;
    std::int64_t day = 0;
    if (value.Which != DateTime::Parts::Time) {
        day = DaysSince1970(value) + kDaysTo1970;
        if (day < kFirstOfMarch1900) return std::nullopt;
    }
    return static_cast<double>(day) + time / kSecondsPerDay;
}

std::string SheetName(std::string_view wanted) {
    constexpr std::size_t kLongest = 31;
    const std::string usable = RepairedUtf8(wanted);
    std::string name;
    std::string_view rest = usable;
    while (!rest.empty()) {
        const std::string_view character = rest.substr(0, Utf8CharacterSize(rest));
        if (Utf16Length(name) + Utf16Length(character) > kLongest) break;
        const bool isForbidden = character.find_first_of("[]:*?/\\") == 0 ||
                                 static_cast<unsigned char>(character[0]) < 0x20 || IsNoncharacter(character);
        name += isForbidden ? std::string_view("_") : character;
        rest.remove_prefix(character.size());
    }
    if (name.empty()) return "Sheet1";
    for (char* const end : {&name.front(), &name.back()}) {
        if (*end == '\'') *end = '_';
    }
    if (AsciiLower(name) == "history") name += '_';  // the one name that is taken in every workbook
    return name;
}

std::string CellText(std::string_view text) {
    const auto has = [text](std::string_view part) { return text.find(part) != std::string_view::npos; };
    if (IsUtf8(text) && text.find('\0') == std::string_view::npos && !has("_x") && !has("\xEF\xBF"))
        return std::string(text);
    std::string cell;
    cell.reserve(text.size() + 16);
    while (!text.empty()) {
        const std::size_t size = Utf8CharacterSize(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(size, 1));
        if (size == 0 || character.front() == '\0') {
            cell += "\xEF\xBF\xBD";
        } else if (IsNoncharacter(character)) {
            cell += character == kFffe ? "_xFFFE_" : "_xFFFF_";
        } else {
            if (IsEscape(text)) cell += "_x005F";  // and the "_" itself
            cell += character;
        }
        text.remove_prefix(character.size());
    }
    return cell;
}

std::size_t DisplayWidth(std::string_view text) noexcept {
    std::size_t width = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = std::max<std::size_t>(Utf8CharacterSize(text.substr(at)), 1);
        // Three bytes from U+1100 on hold the scripts of East Asia; four bytes symbols as wide.
        width += size == 4 || (size == 3 && static_cast<unsigned char>(text[at]) >= 0xE3) ? 2 : 1;
        at += size;
    }
    return width;
}

}  // namespace halvtiv::exporters
