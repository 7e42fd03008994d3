#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace halvtiv::ado {

/// How one thread stops what another one runs on a connection.
///
/// Thrown from any thread, it stays thrown until a statement has failed because of it or the next call
/// begins: between two statements of one call it stops the second one, without a call under way it does
/// nothing.
class CancelSwitch {
public:
    /// A call on the connection, while this object lives; calls may nest. Of the thread that uses the
    /// connection.
    class Call {
    public:
        explicit Call(CancelSwitch& owner) noexcept : owner_(owner) {
            if (owner_.calls_++ == 0) owner_.thrown_.store(false, std::memory_order_relaxed);
        }
        ~Call() { --owner_.calls_; }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

    private:
        CancelSwitch& owner_;
    };

    /// A call that waits for a server, as the thread that throws the switch sees it.
    class Waiting {
    public:
        Waiting() = default;
        virtual ~Waiting() = default;
        Waiting(const Waiting&) = delete;
        Waiting& operator=(const Waiting&) = delete;
        /// Asks the server to stop it; false where that cannot be asked.
        virtual bool AskToStop() noexcept = 0;
        /// Whether `Cut` does anything.
        virtual bool CanCut() const noexcept { return false; }
        /// Ends it for good, and its connection with it.
        virtual void Cut() noexcept {}
    };

    /// While it lives, throwing the switch stops the call, which does not go before this object. Made around
    /// each call that waits; look at `IsThrown` after making it.
    class Target {
    public:
        Target(CancelSwitch& owner, Waiting& call) : owner_(owner) {
            const std::lock_guard lock(owner_.mutex_);
            owner_.call_ = &call;
        }
        ~Target() {
            const std::lock_guard lock(owner_.mutex_);
            owner_.call_ = nullptr;
            owner_.targetGone_.notify_all();
        }
        Target(const Target&) = delete;
        Target& operator=(const Target&) = delete;

    private:
        CancelSwitch& owner_;
    };

    /// Does not wait where nothing waits for a server. Otherwise it does until that has ended; a call that
    /// the server does not end is cut off after some seconds, where that is possible.
    void Throw() noexcept {
        thrown_.store(true, std::memory_order_relaxed);
        // A call that has been announced may not have begun: it is stopped once more until it has ended.
        constexpr int kAttempts = 20;
        constexpr std::chrono::milliseconds kBetween{50};
        constexpr std::chrono::seconds kStopTakes{10};
        std::unique_lock lock(mutex_);
        const auto hasEnded = [this] { return call_ == nullptr || !IsThrown(); };
        bool isAsked = true;
        for (int i = 0; i < kAttempts && isAsked && !hasEnded(); ++i) {
            isAsked = call_->AskToStop() || !call_->CanCut();
            if (isAsked) targetGone_.wait_for(lock, kBetween);
        }
        if (hasEnded() || !call_->CanCut()) return;
        if (isAsked) targetGone_.wait_for(lock, kStopTakes, hasEnded);
        if (!hasEnded()) call_->Cut();
    }
    bool IsThrown() const noexcept { return thrown_.load(std::memory_order_relaxed); }
    /// Whether it was thrown; it is not any more.
    bool Take() noexcept { return IsThrown() && thrown_.exchange(false, std::memory_order_relaxed); }

private:
    std::atomic<bool> thrown_ = false;
    std::mutex mutex_;  // of what follows
    std::condition_variable targetGone_;
    Waiting* call_ = nullptr;  // null while nothing waits
    int calls_ = 0;            // under way, one within the other
};

}  // namespace halvtiv::ado
