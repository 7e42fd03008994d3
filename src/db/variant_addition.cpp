#include "db/variant_addition.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/number.hpp"
#include "platform/run_time_error.hpp"
#include "platform/text.hpp"

namespace halvtiv {

namespace {

using platform::RaiseRunTimeError;
using platform::RunTimeError;

double RequireNumber(std::string_view text) {
    const auto number = platform::ParseNumber(text);
    if (!number) RaiseRunTimeError(RunTimeError::TypeMismatch);
    return *number;
}

ado::Variant Sum(double left, double right) {
    const double sum = left + right;
    if (!std::isfinite(sum)) RaiseRunTimeError(RunTimeError::Overflow);
    return ado::Variant(sum);
}

std::optional<std::int64_t> ReadInteger(std::string_view text) {
    if (text.starts_with('+')) text.remove_prefix(1);
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc::result_out_of_range) RaiseRunTimeError(RunTimeError::Overflow);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

/// A number of plain digits as they are added on paper.
struct Digits {
    bool isNegative = false;
    std::string whole;     // without leading zeros
    std::string fraction;  // as long as it was written
};

/// Nothing for an exponent, which the fewest values have.
std::optional<Digits> ReadDigits(std::string_view text) {
    Digits digits;
    if (text.starts_with('-') || text.starts_with('+')) {
        digits.isNegative = text.front() == '-';
        text.remove_prefix(1);
    }
    if (text.find_first_not_of("0123456789.") != std::string_view::npos) return std::nullopt;
    const std::size_t point = std::min(text.find('.'), text.size());
    digits.whole = text.substr(0, point);
    digits.whole.erase(0, std::min(digits.whole.find_first_not_of('0'), digits.whole.size()));
    if (point < text.size()) digits.fraction = text.substr(point + 1);
    return digits;
}

/// The digits of a and b added, or b's taken from a's, which are no less then; both of one length.
std::string Combine(const std::string& a, const std::string& b, bool subtract) {
    std::string result(a.size(), '0');
    int carry = 0;
    for (std::size_t i = a.size(); i-- > 0;) {
        const int other = b[i] - '0';
        int digit = (a[i] - '0') + carry + (subtract ? -other : other);
        carry = digit < 0 ? -1 : digit / 10;
        digit = (digit + 10) % 10;
        result[i] = static_cast<char>('0' + digit);
    }
    return result;
}

std::string AddDigits(const Digits& left, const Digits& right) {
    const std::size_t places = std::max(left.fraction.size(), right.fraction.size());
    const std::size_t width = std::max(left.whole.size(), right.whole.size()) + 1;
    const auto aligned = [&](const Digits& digits) {
        return std::string(width - digits.whole.size(), '0') + digits.whole + digits.fraction +
               std::string(places - digits.fraction.size(), '0');
    };
    std::string larger = aligned(left);
    std::string smaller = aligned(right);
    bool isNegative = left.isNegative;
    if (larger < smaller) {
        larger.swap(smaller);
        isNegative = right.isNegative;
    }
    std::string sum = Combine(larger, smaller, left.isNegative != right.isNegative);
    const bool isZero = sum.find_first_not_of('0') == std::string::npos;
    if (places > 0) sum.insert(width, ".");
    // One digit stays before the point.
    sum.erase(0, std::min(sum.find_first_not_of('0'), width - 1));
    return isNegative && !isZero ? "-" + sum : sum;
}

ado::Variant AddDecimal(std::string_view current, std::string_view text) {
    const double number = RequireNumber(text);
    const auto left = ReadDigits(current);
    const auto right = ReadDigits(text);
    if (left && right) return ado::Variant(ado::Decimal{AddDigits(*left, *right)});
    return Sum(RequireNumber(current), number);
}

ado::Variant AddInteger(std::int64_t current, std::string_view text) {
    const double number = RequireNumber(text);
    const auto other = ReadInteger(text);
    if (!other) {
        // A fraction or an exponent: exact as long as the digits are there.
        return ReadDigits(text) ? AddDecimal(std::to_string(current), text)
                                : Sum(static_cast<double>(current), number);
    }
    std::int64_t sum = 0;
    if (__builtin_add_overflow(current, *other, &sum)) RaiseRunTimeError(RunTimeError::Overflow);
    return ado::Variant(sum);
}

ado::Variant AddDays(ado::DateTime value, double days) {
    using std::chrono::sys_days;
    constexpr double kSecondsADay = 86400;
    if (value.Which == ado::DateTime::Parts::Time) RaiseRunTimeError(RunTimeError::TypeMismatch);
    if (!(std::abs(days) < 4e6)) RaiseRunTimeError(RunTimeError::Overflow);
    const auto date = std::chrono::year(value.Year) / std::chrono::month(static_cast<unsigned>(value.Month)) /
                      std::chrono::day(static_cast<unsigned>(value.Day));
    const double whole = std::floor(days);
    const auto seconds = std::llround((days - whole) * kSecondsADay);
    auto moment = std::chrono::sys_seconds(sys_days(date)) + std::chrono::hours(value.Hour) +
                  std::chrono::minutes(value.Minute) + std::chrono::seconds(value.Second) +
                  std::chrono::days(static_cast<std::int64_t>(whole)) + std::chrono::seconds(seconds);
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day moved(day);
    const std::chrono::hh_mm_ss time(moment - day);
    value.Year = static_cast<int>(moved.year());
    if (value.Year < 1 || value.Year > 9999) RaiseRunTimeError(RunTimeError::Overflow);
    value.Month = static_cast<std::int32_t>(static_cast<unsigned>(moved.month()));
    value.Day = static_cast<std::int32_t>(static_cast<unsigned>(moved.day()));
    value.Hour = static_cast<std::int32_t>(time.hours().count());
    value.Minute = static_cast<std::int32_t>(time.minutes().count());
    value.Second = static_cast<std::int32_t>(time.seconds().count());
    return ado::Variant(value);
}

}  // namespace

ado::Variant AddText(const ado::Variant& current, std::string_view text) {
    if (const std::string* own = current.AsText(); own && !text.empty())
        return ado::Variant(*own + std::string(text));
    const std::string_view number = text.empty() ? "0" : platform::TrimBlanks(text);
    if (const auto* integer = current.AsInteger()) return AddInteger(*integer, number);
    if (const auto* decimal = current.AsDecimal()) return AddDecimal(decimal->Digits, number);
    if (const auto* real = current.AsDouble()) return Sum(*real, RequireNumber(number));
    if (const auto* boolean = current.AsBool()) return AddInteger(*boolean ? -1 : 0, number);
    if (const auto* date = current.AsDateTime()) return AddDays(*date, RequireNumber(number));
    if (const auto* own = current.AsText()) return AddDecimal(platform::TrimBlanks(*own), number);
    RaiseRunTimeError(RunTimeError::TypeMismatch);
}

}  // namespace halvtiv
