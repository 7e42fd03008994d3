#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace halvtiv::platform {

/// Sixteen random bytes with version 4 and the variant of RFC 4122 set; nothing when the system gives none.
std::optional<std::array<std::uint8_t, 16>> NewGuid() noexcept;

}  // namespace halvtiv::platform
