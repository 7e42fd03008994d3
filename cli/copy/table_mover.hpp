#pragma once

#include <atomic>
#include <cstdint>
#include <functional>

#include "copy/copy_plan.hpp"

namespace halvtiv::cli::copy {

/// Somebody has asked for the end.
struct Interrupted {};

/// How the long parts of a copy are watched.
struct Watch {
    const std::atomic<bool>& isInterrupted;
    std::function<void(std::int64_t rows)> report;  ///< rows that have been dealt with since the last call

    /// Raises `Interrupted`.
    void Look() const {
        if (isInterrupted) throw Interrupted{};
    }
};

/// Copies the rows that the target does not have yet, a batch with its note in the state in one transaction.
void MoveRows(const Database& source, const Database& target, TableCopy& table, CopyState& state,
              std::int64_t batchRows, const Watch& watch);

/// Reads both tables, at the same time, and compares number and content of their rows. Sets `isEqual`
/// and `differingColumns`.
void CompareRows(const Database& source, const Database& target, TableCopy& table, const Watch& watch);

}  // namespace halvtiv::cli::copy
