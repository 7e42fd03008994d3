#pragma once

#include <string>
#include <vector>

namespace halvtiv::bench {

/// A promise: the time of one benchmark against that of its baseline, or a counter of one benchmark.
struct Promise {
    std::string title;
    std::string measured;     ///< a benchmark's name
    std::string baseline;     ///< a benchmark's name; empty where a counter is judged
    std::string counter;      ///< the counter's name
    double limit = 0;         ///< the most that the ratio or the counter may be
    bool onTheClock = false;  ///< elapsed time counts, not that of the processor: another process works, too
};

/// All promises, in the order in which they are printed.
std::vector<Promise>& Promises();

/// Adds a promise at start-up.
struct Promised {
    explicit Promised(Promise promise) { Promises().push_back(std::move(promise)); }
};

}  // namespace halvtiv::bench
