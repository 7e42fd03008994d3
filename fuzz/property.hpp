#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace halvtiv::fuzz {

/// Ends the run with the words when what is always to hold does not.
inline void Require(bool holds, const char* words) {
    if (!holds) throw std::logic_error(words);
}

inline std::string_view TextOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// The first line, and what stands behind it.
inline std::pair<std::string_view, std::string_view> FirstLineAndRest(std::string_view text) {
    const auto end = text.find('\n');
    if (end == std::string_view::npos) return {text, {}};
    return {text.substr(0, end), text.substr(end + 1)};
}

}  // namespace halvtiv::fuzz
