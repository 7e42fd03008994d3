#include "ado/owned_cell.hpp"

#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <string_view>
#include <utility>

#include "ado/cell_text.hpp"
#include "ado/errors.hpp"
#include "platform/date_time.hpp"
#include "platform/number.hpp"
#include "platform/text.hpp"

namespace halvtiv::ado {
namespace {

OwnedCell Integer(std::int64_t value) {
    return {CellKind::Integer, value, 0, {}};
}

OwnedCell Text(std::string value) {
    return {CellKind::Text, 0, 0, std::move(value)};
}

struct Range {
    std::int64_t least;
    std::int64_t most;
};

std::optional<Range> RangeOf(std::int32_t type) {
    switch (type) {
        case adTinyInt:
            return Range{-128, 127};
        case adUnsignedTinyInt:
            return Range{0, 255};
        case adSmallInt:
            return Range{-32768, 32767};
        case adUnsignedSmallInt:
            return Range{0, 65535};
        case adInteger:
            return Range{std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()};
        case adUnsignedInt:
            return Range{0, std::numeric_limits<std::uint32_t>::max()};
        case adBigInt:
            return Range{std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()};
        case adUnsignedBigInt:
            return Range{0, std::numeric_limits<std::int64_t>::max()};
        default:
            return std::nullopt;
    }
}

std::optional<std::int64_t> Rounded(double value) {
    const double rounded = std::nearbyint(value);
    constexpr double kTooMuch = 9223372036854775808.0;
    if (!(rounded >= -kTooMuch && rounded < kTooMuch)) return std::nullopt;
    return static_cast<std::int64_t>(rounded);
}

std::optional<std::int64_t> ReadInteger(std::string_view text) {
    auto digits = text;
    if (digits.starts_with('+')) digits.remove_prefix(1);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const bool isSigned = digits.starts_with('-');
    if (error == std::errc{} && end == digits.data() + digits.size() && !(isSigned && digits != text)) {
        return value;
    }
    // As a double, it could come to lie within the range.
    if (error == std::errc::result_out_of_range && end == digits.data() + digits.size()) return std::nullopt;
    const auto number = platform::ParseNumber(text);
    return number ? Rounded(*number) : std::nullopt;
}

// Half of the unsigned 64-bit integers are beyond the signed ones; they travel as their digits.
bool IsLargeUnsigned(std::string_view text) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size();
}

std::optional<OwnedCell> IntegerCell(const Variant& value, std::string_view text, std::int32_t type) {
    if (const bool* boolean = value.AsBool()) return Integer(*boolean ? 1 : 0);
    const auto range = *RangeOf(type);
    const auto integer = ReadInteger(text);
    if (integer && *integer >= range.least && *integer <= range.most) return Integer(*integer);
    if (type == adUnsignedBigInt && IsLargeUnsigned(text)) return Text(std::string(text));
    return std::nullopt;
}

std::optional<OwnedCell> DoubleCell(const Variant& value, std::string_view text) {
    if (const double* number = value.AsDouble()) return OwnedCell{CellKind::Double, 0, *number, {}};
    const auto parsed = platform::ParseNumber(text);
    if (!parsed) return std::nullopt;
    return OwnedCell{CellKind::Double, 0, *parsed, {}};
}

// The digits as they were given: the database keeps what it can of them.
std::optional<OwnedCell> DecimalCell(std::string_view text, std::int32_t type) {
    const Variant read = ValueOfCellText(text, type);
    if (read.AsDecimal()) return Text(read.Text());
    const double* number = read.AsDouble();
    if (!number) return std::nullopt;
    CellBuffer buffer;
    return Text(std::string(CellTextOfDouble(*number, type, buffer)));
}

std::optional<OwnedCell> BooleanCell(std::string_view text) {
    const Variant read = ValueOfCellText(text, adBoolean);
    if (const bool* boolean = read.AsBool()) return Integer(*boolean ? 1 : 0);
    const auto number = platform::ParseNumber(text);
    if (!number) return std::nullopt;
    return Integer(*number != 0 ? 1 : 0);
}

// A value with an offset names a moment that no column's form can hold: it stays as it is.
std::optional<OwnedCell> DateTimeCell(std::string_view text, std::int32_t type) {
    const Variant read = ValueOfCellText(text, type);
    if (read.AsDateTime()) return Text(read.Text());
    const auto parsed = platform::ParseDateTime(text);
    if (parsed && parsed->hasOffset && type == adDBTimeStamp) return Text(std::string(text));
    return std::nullopt;
}

std::optional<OwnedCell> GuidCell(std::string_view text) {
    CellBuffer buffer;
    const auto guid = CellTextOfText(text, adGUID, buffer);
    if (guid.data() != buffer.guid) return std::nullopt;
    return Text(std::string(guid));
}

std::optional<OwnedCell> CellOfScalar(const Variant& value, std::string_view text, std::int32_t type) {
    if (RangeOf(type)) return IntegerCell(value, text, type);
    if (IsDecimalType(type)) return DecimalCell(text, type);
    switch (type) {
        case adSingle:
        case adDouble:
            return DoubleCell(value, text);
        case adBoolean:
            return BooleanCell(text);
        case adDate:
        case adDBDate:
        case adDBTime:
        case adDBTimeStamp:
            return DateTimeCell(text, type);
        case adGUID:
            return GuidCell(text);
        default:
            return std::nullopt;
    }
}

}  // namespace

OwnedCell CellForColumn(const Variant& value, std::int32_t type) {
    if (value.IsNull()) return {};
    std::string text = value.Text();
    if (IsBytesType(type)) return {CellKind::Blob, 0, 0, std::move(text)};
    if (IsTextType(type)) return Text(std::move(text));
    if (!value.AsBytes()) {
        if (auto cell = CellOfScalar(value, platform::TrimBlanks(text), type)) return *std::move(cell);
    }
    RaiseAdoError(AdoError::WrongType);
}

OwnedCell NumberCell(const Variant& value) {
    if (const auto* integer = value.AsInteger()) return Integer(*integer);
    if (auto cell = DoubleCell(value, value.Text())) return *std::move(cell);
    RaiseAdoError(AdoError::WrongType);
}

}  // namespace halvtiv::ado
