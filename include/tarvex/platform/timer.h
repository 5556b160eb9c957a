#pragma once

#include <functional>
#include <memory>

#include "tarvex/export.h"

namespace tarvex::platform {

/// A repeating timer. Dropping the last reference does not stop it: `invalidate` does.
class TARVEX_EXPORT Timer {
public:
    virtual ~Timer() = default;

    /// Stops the timer for good. Thread-safe, also called by the block. A tick that is beginning on the timer's thread
    /// meanwhile may still come when another thread calls this.
    ///
    /// What the block holds is released on the timer's thread: at once when called there while its loop runs, else by
    /// the loop.
    virtual void invalidate() = 0;
};

/// Where sampling gets its ticks from. May be called from any thread.
class TARVEX_EXPORT TimerScheduler {
public:
    virtual ~TimerScheduler() = default;

    /// Calls `block` every `interval` seconds on the calling thread's run loop, first after one interval.
    ///
    /// Deadlines are absolute, so that ticks do not drift; one that was missed is skipped. An interval of zero or
    /// below, or one that is not a number, ticks once a second; one past the clock's range never ticks. A thread
    /// without a loop of its own gets the tick on the main loop.
    [[nodiscard]] virtual std::shared_ptr<Timer> scheduledTimer(double interval, std::function<void()> block) = 0;
};

}  // namespace tarvex::platform
