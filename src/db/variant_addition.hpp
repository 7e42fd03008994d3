#pragma once

#include <string_view>

#include <halvtiv/ado.hpp>

namespace halvtiv {

/// A column's value plus a text: numbers add as what they are, decimals exactly, a date moves by days, a text
/// is joined. An empty text is 0. Raises 13 "Type mismatch." where the two cannot be added, and 6 "Overflow."
/// for integers beyond 64 bits and dates beyond the year 9999.
ado::Variant AddText(const ado::Variant& current, std::string_view text);

}  // namespace halvtiv
