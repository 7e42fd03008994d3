#pragma once

#include <atomic>

namespace halvtiv::ado {

/// How one thread stops what another one runs on a connection.
///
/// Thrown from any thread, it stays thrown until somebody has failed because of it or it is forgotten: a
/// cancellation that comes between two statements stops the second one.
class CancelSwitch {
public:
    void Throw() noexcept { thrown_.store(true, std::memory_order_relaxed); }
    void Forget() noexcept { thrown_.store(false, std::memory_order_relaxed); }
    bool IsThrown() const noexcept { return thrown_.load(std::memory_order_relaxed); }
    /// Whether it was thrown; it is not any more.
    bool Take() noexcept { return IsThrown() && thrown_.exchange(false, std::memory_order_relaxed); }

private:
    std::atomic<bool> thrown_ = false;
};

}  // namespace halvtiv::ado
