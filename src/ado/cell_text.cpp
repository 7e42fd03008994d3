#include "ado/cell_text.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

using Parts = DateTime::Parts;

constexpr std::string_view BooleanText(bool value) noexcept {
    return value ? "True" : "False";
}

std::optional<bool> ParseBoolean(std::string_view text) {
    if (text == "1" || platform::EqualIgnoringCase(text, "true")) return true;
    if (text == "0" || platform::EqualIgnoringCase(text, "false")) return false;
    return std::nullopt;
}

// A date of the kind that the column holds: a DATETIME takes a date as its midnight, nothing else is widened
// or cut, and an offset has no place in any column.
std::optional<DateTime> ParseDateTimeOf(std::string_view text, std::int32_t type) {
    auto parsed = platform::ParseDateTime(text);
    if (!parsed || parsed->hasOffset) return std::nullopt;
    auto& value = parsed->value;
    if (type == adDBTimeStamp && value.Which == Parts::Date) value.Which = Parts::DateAndTime;
    const bool fits = type == adDate || (type == adDBDate && value.Which == Parts::Date) ||
                      (type == adDBTime && value.Which == Parts::Time) ||
                      (type == adDBTimeStamp && value.Which == Parts::DateAndTime);
    if (!fits) return std::nullopt;
    return value;
}

constexpr bool HasDashBefore(int digitIndex) noexcept {
    return digitIndex == 8 || digitIndex == 12 || digitIndex == 16 || digitIndex == 20;
}

constexpr int HexValue(char digit) noexcept {
    if (digit >= '0' && digit <= '9') return digit - '0';
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

// From `digitAt(i)`, the value of the i-th of 32 hexadecimal digits; nothing when one of them is negative.
template <typename DigitAt>
std::optional<std::string_view> GuidText(DigitAt digitAt, CellBuffer& buffer) {
    char* out = buffer.guid;
    *out++ = '{';
    for (int i = 0; i < 32; ++i) {
        const int digit = digitAt(i);
        if (digit < 0) return std::nullopt;
        if (HasDashBefore(i)) *out++ = '-';
        *out++ = "0123456789ABCDEF"[digit];
    }
    *out = '}';
    return std::string_view(buffer.guid, sizeof buffer.guid);
}

// With or without braces, with all four dashes or none.
std::optional<std::string_view> GuidTextOfText(std::string_view text, CellBuffer& buffer) {
    if (text.size() >= 2 && text.front() == '{' && text.back() == '}') text = text.substr(1, text.size() - 2);
    if (text.size() == 32) {
        return GuidText([&](int i) { return HexValue(text[static_cast<std::size_t>(i)]); }, buffer);
    }
    if (text.size() != 36) return std::nullopt;
    for (const std::size_t dash : {8U, 13U, 18U, 23U}) {
        if (text[dash] != '-') return std::nullopt;
    }
    std::size_t next = 0;
    return GuidText(
        [&](int i) {
            if (HasDashBefore(i)) ++next;
            return HexValue(text[next++]);
        },
        buffer);
}

bool IsDecimalText(std::string_view text) {
    if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
    return text.find_first_of("0123456789") != std::string_view::npos &&
           text.find_first_not_of("0123456789.") == std::string_view::npos &&
           text.find('.') == text.rfind('.');
}

}  // namespace

std::string_view CellTextOfInteger(std::int64_t value, std::int32_t type, CellBuffer& buffer) {
    if (type == adBoolean) return BooleanText(value != 0);
    return platform::IntegerText(value, buffer.number);
}

std::string_view CellTextOfDouble(double value, std::int32_t type, CellBuffer& buffer) {
    if (IsDecimalType(type)) {
        char* const begin = buffer.number;
        const auto [end, error] =
            std::to_chars(begin, begin + sizeof buffer.number, value, std::chars_format::fixed);
        if (error == std::errc{}) return {begin, static_cast<std::size_t>(end - begin)};
    }
    return platform::DoubleText(value, buffer.number);
}

std::string_view CellTextOfText(std::string_view value, std::int32_t type, CellBuffer& buffer) {
    switch (type) {
        case adDBTimeStamp:
            if (platform::IsPlainTimestamp(value)) return value;
            [[fallthrough]];
        case adDBDate:
        case adDBTime: {
            const auto parsed = ParseDateTimeOf(value, type);
            return parsed ? platform::DateTimeText(*parsed, buffer.dateTime) : value;
        }
        case adBoolean: {
            const auto parsed = ParseBoolean(value);
            return parsed ? BooleanText(*parsed) : value;
        }
        case adGUID:
            return GuidTextOfText(value, buffer).value_or(value);
        default:
            return value;
    }
}

std::string_view CellTextOfBytes(std::string_view value, std::int32_t type, CellBuffer& buffer) {
    if (type != adGUID || value.size() != 16) return value;
    // In the order in which the text shows them, which is how tools that keep GUIDs as bytes write them.
    const auto digitAt = [&](int i) {
        const auto byte = static_cast<unsigned char>(value[static_cast<std::size_t>(i / 2)]);
        return i % 2 == 0 ? byte >> 4 : byte & 15;
    };
    return GuidText(digitAt, buffer).value_or(value);
}

std::string_view CellText(const CellValue& value, std::int32_t type, CellBuffer& buffer) {
    switch (value.kind) {
        case CellKind::Integer:
            return CellTextOfInteger(value.integer, type, buffer);
        case CellKind::Double:
            return CellTextOfDouble(value.number, type, buffer);
        case CellKind::Text:
            return CellTextOfText(value.text, type, buffer);
        case CellKind::Blob:
            return CellTextOfBytes(value.text, type, buffer);
        default:
            return {};
    }
}

std::size_t CopyPiece(std::string_view bytes, std::int64_t offset, std::span<std::uint8_t> piece) {
    if (offset < 0 || static_cast<std::size_t>(offset) >= bytes.size()) return 0;
    const auto count = std::min(piece.size(), bytes.size() - static_cast<std::size_t>(offset));
    std::memcpy(piece.data(), bytes.data() + offset, count);
    return count;
}

Variant ValueOfCellText(std::string_view text, std::int32_t type) {
    switch (type) {
        case adSmallInt:
        case adInteger:
        case adTinyInt:
        case adUnsignedTinyInt:
        case adUnsignedSmallInt:
        case adUnsignedInt:
        case adBigInt:
        case adUnsignedBigInt: {
            std::int64_t value = 0;
            const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
            if (error == std::errc{} && end == text.data() + text.size()) return Variant(value);
            break;
        }
        case adSingle:
        case adDouble:
            if (const auto value = platform::ParseNumber(text)) return Variant(*value);
            break;
        case adCurrency:
        case adDecimal:
        case adNumeric:
        case adVarNumeric:
            if (IsDecimalText(text)) return Variant(Decimal{std::string(text)});
            if (const auto value = platform::ParseNumber(text)) return Variant(*value);
            break;
        case adBoolean:
            if (const auto value = ParseBoolean(text)) return Variant(*value);
            break;
        case adDate:
        case adDBDate:
        case adDBTime:
        case adDBTimeStamp:
            if (const auto value = ParseDateTimeOf(text, type)) return Variant(*value);
            break;
        default:
            if (IsBytesType(type)) return Variant(Bytes(text.begin(), text.end()));
            break;
    }
    return Variant(std::string(text));
}

}  // namespace halvtiv::ado
