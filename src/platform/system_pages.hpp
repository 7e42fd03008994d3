#pragma once

#include <cstddef>

namespace halvtiv::platform {

/// Memory straight from the system, and straight back to it: for what is large and short-lived.
/// Raises std::bad_alloc. `size` is a multiple of 64 KiB.
void* TakeSystemPages(std::size_t size);
void GiveSystemPages(void* memory, std::size_t size) noexcept;

}  // namespace halvtiv::platform
