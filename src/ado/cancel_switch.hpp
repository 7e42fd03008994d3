#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace halvtiv::ado {

/// How one thread stops what another one runs on a connection.
///
/// Thrown from any thread, it stays thrown until somebody has failed because of it or it is forgotten: a
/// cancellation that comes between two statements stops the second one.
class CancelSwitch {
public:
    /// How to stop a call that waits for a server; called from the thread that throws the switch.
    using Stop = void (*)(void* target) noexcept;

    /// While it lives, throwing the switch stops the target, which does not go before this object. Made
    /// around each call that waits; look at `IsThrown` after making it.
    class Target {
    public:
        Target(CancelSwitch& owner, Stop stop, void* target) : owner_(owner) {
            const std::lock_guard lock(owner_.mutex_);
            owner_.stop_ = stop;
            owner_.target_ = target;
        }
        ~Target() {
            const std::lock_guard lock(owner_.mutex_);
            owner_.stop_ = nullptr;
            owner_.targetGone_.notify_all();
        }
        Target(const Target&) = delete;
        Target& operator=(const Target&) = delete;

    private:
        CancelSwitch& owner_;
    };

    /// Does not wait where nothing waits for a server.
    void Throw() noexcept {
        thrown_.store(true, std::memory_order_relaxed);
        // A call that has been announced may not have begun: it is stopped once more until it has ended.
        constexpr int kAttempts = 20;
        std::unique_lock lock(mutex_);
        for (int i = 0; i < kAttempts && stop_ && IsThrown(); ++i) {
            stop_(target_);
            targetGone_.wait_for(lock, std::chrono::milliseconds(50));
        }
    }
    void Forget() noexcept { thrown_.store(false, std::memory_order_relaxed); }
    bool IsThrown() const noexcept { return thrown_.load(std::memory_order_relaxed); }
    /// Whether it was thrown; it is not any more.
    bool Take() noexcept { return IsThrown() && thrown_.exchange(false, std::memory_order_relaxed); }

private:
    std::atomic<bool> thrown_ = false;
    std::mutex mutex_;  // of what follows
    std::condition_variable targetGone_;
    Stop stop_ = nullptr;  // null while nothing waits
    void* target_ = nullptr;
};

}  // namespace halvtiv::ado
