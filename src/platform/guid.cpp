#include "platform/guid.hpp"

#include <unistd.h>

namespace halvtiv::platform {

std::optional<std::array<std::uint8_t, 16>> NewGuid() noexcept {
    std::array<std::uint8_t, 16> guid;
    if (getentropy(guid.data(), guid.size()) != 0) return std::nullopt;
    guid[6] = static_cast<std::uint8_t>((guid[6] & 0x0F) | 0x40);  // version 4
    guid[8] = static_cast<std::uint8_t>((guid[8] & 0x3F) | 0x80);  // the RFC's variant
    return guid;
}

}  // namespace halvtiv::platform
