#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace halvtiv::platform {

/// The value of a numeric text: blanks around, a sign, digits with at most one ".", an exponent. Nothing for
/// any other text and for a value beyond the range of a double; too small a value is 0.
std::optional<double> ParseNumber(std::string_view text);

/// Rounded half to even. Raises run-time error 6 "Overflow." when the value does not fit.
std::int32_t RoundToInt32(double value);

/// The text's value as a 32-bit integer. Raises 13 when it is not numeric and 6 when it does not fit.
std::int32_t TextToInt32(std::string_view text);

/// Room for any number's text.
inline constexpr std::size_t kNumberTextSize = 32;

/// Decimal digits of the value; the view is of `buffer`.
std::string_view IntegerText(std::int64_t value, char (&buffer)[kNumberTextSize]) noexcept;
/// The shortest text that reads back the same: "0.1", "3", "1e+21", "inf"; the view is of `buffer`.
std::string_view DoubleText(double value, char (&buffer)[kNumberTextSize]) noexcept;

/// Upper-case hexadecimal digits, filled with "0" in front up to `width`; never cut.
std::string HexPadded(std::uint64_t value, int width);

}  // namespace halvtiv::platform
