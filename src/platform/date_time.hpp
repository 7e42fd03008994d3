#pragma once

#include <optional>
#include <string_view>

#include <halvtiv/date_time.hpp>

namespace halvtiv::platform {

/// A text read as a date: `YYYY-MM-DD` or `YYYY/MM/DD`, a time `HH:MM[:SS[.fff]]` (one to nine digits), or
/// both with a blank or "T" between; blanks around it; after a time "Z" or an offset `+HH:MM`, `+HHMM`,
/// `+HH`.
struct ParsedDateTime {
    DateTime value;  ///< as written: an offset is not applied
    bool hasOffset = false;
};

/// Nothing for a text of another form and for a day or time that does not exist.
std::optional<ParsedDateTime> ParseDateTime(std::string_view text);

/// Room for any date's text.
inline constexpr std::size_t kDateTimeTextSize = 40;

/// `YYYY-MM-DD`, `HH:MM:SS` or both with a blank between, by `value.Which`; a fraction (no trailing zeros)
/// only when there is one. The view is of `buffer`.
std::string_view DateTimeText(const DateTime& value, char (&buffer)[kDateTimeTextSize]) noexcept;

/// Whether a text is exactly `YYYY-MM-DD HH:MM:SS` of a day that exists: what `DateTimeText` would give back.
bool IsPlainTimestamp(std::string_view text) noexcept;

}  // namespace halvtiv::platform
