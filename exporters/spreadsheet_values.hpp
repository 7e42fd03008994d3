#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <halvtiv/date_time.hpp>

namespace halvtiv::exporters {

// What a spreadsheet's cells can hold, and how.

/// The number of an integer's or a decimal's text, when a double holds all of its digits: up to 2^53, or 15
/// digits.
std::optional<double> ExactInteger(std::string_view text);
std::optional<double> ExactDecimal(std::string_view text);
/// The number of a double's text; nothing for one that is not finite.
std::optional<double> FiniteDouble(std::string_view text);

/// Days since 30 December 1899, the fraction being the time of day; nothing before 1 March 1900: some
/// programs believe in a 29 February 1900, and before it they disagree.
std::optional<double> DateSerial(const DateTime& value);

/// A name that a sheet may have, as near to the wanted one as possible: at most 31 characters, none of
/// `[]:*?/\`, no "'" at its ends. "Sheet1" for none.
std::string SheetName(std::string_view wanted);

/// A text as a cell holds it: what is no character, and a NUL, is U+FFFD; U+FFFE and U+FFFF, and a "_x0041_"
/// of the text's own, are written so that they come out as they were.
std::string CellText(std::string_view text);

/// Columns that a text takes on a screen, roughly: East Asian characters take two.
std::size_t DisplayWidth(std::string_view text) noexcept;

}  // namespace halvtiv::exporters
