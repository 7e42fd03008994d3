#pragma once

#include <cstdint>

namespace halvtiv::bench {

/// Most memory that an action takes beyond what the process has before it, in bytes.
template <typename Action>
std::int64_t PeakOf(Action&& action);

/// A figure of the process in bytes, such as "VmHWM:", its peak.
std::int64_t ProcessFigure(const char* name);
/// Lets the peak begin anew.
void ForgetPeak();

template <typename Action>
std::int64_t PeakOf(Action&& action) {
    ForgetPeak();
    const std::int64_t before = ProcessFigure("VmRSS:");
    action();
    return ProcessFigure("VmHWM:") - before;
}

}  // namespace halvtiv::bench
