#include "platform/interrupt.hpp"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

namespace halvtiv::platform {
namespace {

sigset_t InterruptOnly() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    return signals;
}

bool InterruptsAreIgnored() {
    struct sigaction action = {};
    return sigaction(SIGINT, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

// The signal is blocked in every thread, and one thread waits for it: that may call anything, as a signal's
// handler may not.
struct InterruptWatch::Impl {
    explicit Impl(std::function<void()> function) : onInterrupt(std::move(function)) {
        pthread_sigmask(SIG_BLOCK, &signals, &maskBefore);
        try {
            thread = std::thread([this] { Wait(); });
        } catch (...) {
            pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
            throw;
        }
    }

    ~Impl() {
        {
            const std::lock_guard lock(mutex);
            isOver = true;
            // Only while the thread keeps the signal blocked: later it would end the program.
            if (!wasInterrupted) pthread_kill(thread.native_handle(), SIGINT);
        }
        over.notify_one();
        thread.join();
        pthread_sigmask(SIG_SETMASK, &maskBefore, nullptr);
    }
    Impl(const Impl&) = delete;
    Impl& operator=(const Impl&) = delete;

    void Wait() {
        int signal = 0;
        sigwait(&signals, &signal);
        {
            const std::lock_guard lock(mutex);
            if (isOver) return;
            wasInterrupted = true;
        }
        pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);  // the next one is for the system
        onInterrupt();
        std::unique_lock lock(mutex);
        over.wait(lock, [this] { return isOver; });
    }

    std::function<void()> onInterrupt;
    sigset_t signals = InterruptOnly();
    sigset_t maskBefore = {};
    std::mutex mutex;
    std::condition_variable over;
    bool isOver = false;  // under the mutex
    std::atomic<bool> wasInterrupted = false;
    std::thread thread;
};

InterruptWatch::InterruptWatch(std::function<void()> onInterrupt) {
    if (!InterruptsAreIgnored()) impl_ = std::make_unique<Impl>(std::move(onInterrupt));
}

InterruptWatch::~InterruptWatch() = default;

bool InterruptWatch::WasInterrupted() const noexcept {
    return impl_ && impl_->wasInterrupted;
}

}  // namespace halvtiv::platform
