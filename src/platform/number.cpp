#include "platform/number.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "platform/run_time_error.hpp"
#include "platform/text.hpp"

namespace halvtiv::platform {

namespace {

bool IsDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

// The shape of an unsigned numeric text, and on which side of 1 its value lies.
class NumericShape {
public:
    explicit NumericShape(std::string_view text) noexcept {
        std::size_t at = 0;
        std::size_t digits = 0;
        bool seenPoint = false;
        for (; at < text.size(); ++at) {
            if (text[at] == '.' && !seenPoint) {
                seenPoint = true;
            } else if (IsDigit(text[at])) {
                ++digits;
                CountDigit(text[at], seenPoint);
            } else {
                break;
            }
        }
        valid_ = digits > 0 && (at == text.size() || ReadExponent(text.substr(at)));
    }

    bool Valid() const noexcept { return valid_; }
    bool BelowOne() const noexcept { return zero_ || magnitude_ + exponent_ <= 0; }

private:
    void CountDigit(char digit, bool afterPoint) noexcept {
        if (zero_ && digit == '0') {
            if (afterPoint) --magnitude_;
            return;
        }
        zero_ = false;
        if (!afterPoint) ++magnitude_;
    }

    bool ReadExponent(std::string_view text) noexcept {
        if (text[0] != 'e' && text[0] != 'E') return false;
        text.remove_prefix(1);
        const bool negative = text.starts_with('-');
        if (negative || text.starts_with('+')) text.remove_prefix(1);
        if (text.empty() || !std::all_of(text.begin(), text.end(), IsDigit)) return false;
        constexpr std::int64_t kFarBeyond = 1'000'000'000'000'000;
        for (const char digit : text) exponent_ = std::min(exponent_ * 10 + (digit - '0'), kFarBeyond);
        if (negative) exponent_ = -exponent_;
        return true;
    }

    bool valid_ = false;
    bool zero_ = true;            // no digit but "0" so far
    std::int64_t magnitude_ = 0;  // digits before the point, or minus the zeros right after it
    std::int64_t exponent_ = 0;
};

}  // namespace

std::optional<double> ParseNumber(std::string_view text) {
    text = TrimBlanks(text);
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) text.remove_prefix(1);
    const NumericShape shape(text);
    if (!shape.Valid()) return std::nullopt;

    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error == std::errc::result_out_of_range) {
        if (!shape.BelowOne()) return std::nullopt;
        value = 0;
    }
    if (std::isinf(value)) return std::nullopt;
    return negative ? -value : value;
}

std::int32_t RoundToInt32(double value) {
    double rounded = std::floor(value);
    const double rest = value - rounded;
    if (rest > 0.5 || (rest == 0.5 && std::fmod(rounded, 2.0) != 0)) rounded += 1;
    constexpr double kLowest = std::numeric_limits<std::int32_t>::min();
    constexpr double kHighest = std::numeric_limits<std::int32_t>::max();
    if (!(rounded >= kLowest && rounded <= kHighest)) RaiseRunTimeError(RunTimeError::Overflow);
    return static_cast<std::int32_t>(rounded);
}

std::int32_t TextToInt32(std::string_view text) {
    const std::optional<double> value = ParseNumber(text);
    if (!value) RaiseRunTimeError(RunTimeError::TypeMismatch);
    return RoundToInt32(*value);
}

std::string_view IntegerText(std::int64_t value, char (&buffer)[kNumberTextSize]) noexcept {
    return {buffer, std::to_chars(buffer, buffer + kNumberTextSize, value).ptr};
}

std::string_view DoubleText(double value, char (&buffer)[kNumberTextSize]) noexcept {
    const std::string_view text(buffer, std::to_chars(buffer, buffer + kNumberTextSize, value).ptr);
    // Left to itself the conversion prefers "1e+05" to "100000".
    if (text.find('e') == std::string_view::npos) return text;
    const double size = std::fabs(value);
    const bool isPlain = size >= 1e-6 && size < 1e21;
    const auto format = isPlain ? std::chars_format::fixed : std::chars_format::scientific;
    return {buffer, std::to_chars(buffer, buffer + kNumberTextSize, value, format).ptr};
}

std::string HexPadded(std::uint64_t value, int width) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string digits;
    do {
        digits.push_back(kDigits[value & 0xF]);
        value >>= 4;
    } while (value != 0);
    if (width > 0 && digits.size() < static_cast<std::size_t>(width)) {
        digits.append(static_cast<std::size_t>(width) - digits.size(), '0');
    }
    std::reverse(digits.begin(), digits.end());
    return digits;
}

}  // namespace halvtiv::platform
