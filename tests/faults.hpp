#pragma once

#include <cstdint>
#include <functional>
#include <limits>

namespace halvtiv::test {

enum class FaultKind { Memory, System };

/// The calls of a kind that fail with an errno: allocations, or system calls on files. From the one with
/// `number`, counted from 0, there are `length` in a row.
struct Fault {
    static constexpr std::int64_t kUnlimited = std::numeric_limits<std::int64_t>::max();

    FaultKind kind;
    int error;
    std::int64_t length;
    std::int64_t number = 0;
};

/// Makes system calls on files able to fail, for the rest of this process; each takes longer then.
void TrapSystemCalls();

/// Runs an action while calls of this thread fail; true when one did. One at a time.
bool RunWithFault(const Fault& fault, const std::function<void()>& action);

}  // namespace halvtiv::test
