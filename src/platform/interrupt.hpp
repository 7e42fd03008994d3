#pragma once

#include <functional>
#include <memory>

namespace halvtiv::platform {

/// While it lives, the first interrupt from the keyboard (Ctrl-C) calls a function instead of ending the
/// program; a second one ends it at once, as the first would have done without this object. Where the program
/// was started with interrupts ignored, they stay so.
///
/// One at a time, made and destroyed by the main thread, before that has started others.
class InterruptWatch {
public:
    /// onInterrupt is called at most once, on a thread of this object's own; it must not throw.
    explicit InterruptWatch(std::function<void()> onInterrupt);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    /// Whether there was an interrupt.
    bool WasInterrupted() const noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvtiv::platform
