#pragma once

#include <cstdint>

namespace halvtiv::platform {

/// Whole seconds of the calendar since 1970.
std::int64_t CalendarSeconds() noexcept;

}  // namespace halvtiv::platform
