#pragma once

#include <string>
#include <string_view>

namespace halvtiv::cli {

/// A text as a terminal shows it.
struct ShownText {
    std::string_view text;  ///< one line, without control characters
    std::size_t width = 0;  ///< in columns of the terminal
};

/// Turns what would break a line of a terminal into visible signs (a line feed into U+240A and so on) and
/// measures the rest: wide characters and emoji count 2, combining marks 0. The text must be UTF-8. What is
/// returned looks into `text` or `storage`.
ShownText Show(std::string_view text, std::string& storage);

/// Appends the text as `Show` gives it, filled up with blanks to the width.
void AppendPadded(std::string& line, std::string_view text, std::size_t width);

}  // namespace halvtiv::cli
