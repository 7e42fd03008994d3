#pragma once

#include <string>
#include <string_view>

namespace halvtiv::platform {

// Case is Unicode's simple case mapping, one character for one; bytes that are not UTF-8 stay as they are.
std::string ToLower(std::string_view text);
std::string ToUpper(std::string_view text);
/// Whether the texts are equal in one letter case: a Greek final sigma is the same letter as the other
/// sigmas, which only the upper case tells, and the Kelvin sign is a k, which only the lower case tells.
bool EqualIgnoringCase(std::string_view left, std::string_view right);

/// The text without leading and trailing U+0020; no other white space counts.
std::string_view TrimBlanks(std::string_view text);

/// The text with every occurrence replaced, left to right, non-overlapping. An empty `from` changes nothing.
std::string ReplaceAll(std::string_view text, std::string_view from, std::string_view to);
/// The same, comparing ASCII letters without regard to case.
std::string ReplaceAllIgnoringCase(std::string_view text, std::string_view from, std::string_view to);

/// Whether the text is UTF-8 without surrogates and holds only characters that XML 1.0 can carry.
bool IsXmlText(std::string_view text) noexcept;
/// The text with U+FFFD in the place of each byte or character that XML cannot carry.
std::string RepairXmlText(std::string_view text);

}  // namespace halvtiv::platform
