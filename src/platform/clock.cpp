#include "platform/clock.hpp"

#include <chrono>

namespace halvtiv::platform {

std::int64_t CalendarSeconds() noexcept {
    using std::chrono::floor, std::chrono::seconds, std::chrono::system_clock;
    return floor<seconds>(system_clock::now()).time_since_epoch().count();
}

}  // namespace halvtiv::platform
