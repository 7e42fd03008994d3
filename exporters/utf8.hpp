#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace halvtiv::exporters {

/// Bytes of the character at the start of a text that is not empty; 0 where there is none: bad UTF-8, a
/// surrogate.
std::size_t Utf8CharacterSize(std::string_view text) noexcept;

bool IsUtf8(std::string_view text) noexcept;

/// The text with U+FFFD in the place of each byte that belongs to no character.
std::string RepairedUtf8(std::string_view text);

/// Length in the units in which spreadsheets count: characters, those beyond U+FFFF twice.
std::size_t Utf16Length(std::string_view text) noexcept;

}  // namespace halvtiv::exporters
