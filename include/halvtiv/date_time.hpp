#pragma once

#include <cstdint>

namespace halvtiv {

/// A date, a time of day, or both, without a time zone.
struct DateTime {
    /// Which of the fields below count; the others keep their defaults.
    enum class Parts : std::uint8_t { Date, Time, DateAndTime };
    Parts Which = Parts::DateAndTime;
    std::int32_t Year = 1;        ///< 1 to 9999
    std::int32_t Month = 1;       ///< 1 to 12
    std::int32_t Day = 1;         ///< 1 to the month's last
    std::int32_t Hour = 0;        ///< 0 to 23
    std::int32_t Minute = 0;      ///< 0 to 59
    std::int32_t Second = 0;      ///< 0 to 59
    std::int32_t Nanosecond = 0;  ///< 0 to 999,999,999
    bool operator==(const DateTime&) const = default;
};

}  // namespace halvtiv
