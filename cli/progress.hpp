#pragma once

#include <chrono>
#include <cstdint>
#include <halvtiv/db_access_engine.hpp>
#include <memory>
#include <string>

namespace halvtiv::cli {

enum class Unit { Rows, Bytes };

/// How far long work is, for people: a bar and the time left where the total is known (it is -1 otherwise),
/// the amount and the rate.
std::string ProgressText(std::int64_t done, std::int64_t total, Unit unit,
                         std::chrono::duration<double> elapsed);

/// A line on standard error that shows it, on a terminal only, and that leaves no trace.
class ProgressLine {
public:
    ProgressLine();
    ~ProgressLine() { Clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    /// Not more often than the eye follows. Less done than the last time is another piece of work.
    void Show(std::int64_t done, std::int64_t total, Unit unit);
    void Clear();

private:
    using Clock = std::chrono::steady_clock;

    bool isOnTerminal_;
    bool isShown_ = false;
    std::int64_t lastDone_ = 0;
    Clock::time_point start_ = Clock::now();
    Clock::time_point nextTime_ = start_;
};

/// Registers every exporter with the engine, and has the line show their rows and the bytes of large files
/// that the engine copies into columns and out of them.
void AddExportersAndProgress(ZorbDbAccessEngine& engine, const std::shared_ptr<ProgressLine>& line);

}  // namespace halvtiv::cli
