#pragma once

#include <cstddef>

namespace halvtiv::platform {

/// Memory straight from the system, and straight back to it: for what is large and short-lived.
/// Raises std::bad_alloc. `size` is a multiple of 64 KiB; for one of 2 MiB the system is asked for large
/// pages.
void* TakeSystemPages(std::size_t size);
void GiveSystemPages(void* memory, std::size_t size) noexcept;

/// Asks for large pages in memory that has not been touched yet: they take the system a fraction of the time.
void PreferLargePages(void* memory, std::size_t size) noexcept;

}  // namespace halvtiv::platform
