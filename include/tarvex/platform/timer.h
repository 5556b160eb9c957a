#pragma once

#include <functional>
#include <memory>

#include "tarvex/export.h"

namespace tarvex::platform {

/// A repeating timer. Thread-safe. Releasing the last reference does not stop it: `invalidate` does.
class TARVEX_EXPORT Timer {
public:
    virtual ~Timer() = default;

    /// Stops the timer for good; the block may call it. On another thread than the timer's, one tick that is beginning
    /// meanwhile may still come.
    ///
    /// The block is released on the timer's thread: at once when this is called there while its loop runs, else by the
    /// loop.
    virtual void invalidate() = 0;
};

/// The source of the ticks that sampling runs on. Thread-safe.
class TARVEX_EXPORT TimerScheduler {
public:
    virtual ~TimerScheduler() = default;

    /// Calls `block` every `interval` seconds on the calling thread's run loop, first after one interval.
    ///
    /// Deadlines are absolute, so that ticks do not drift; a missed one is skipped. An interval of zero or below, or
    /// one that is not a number, ticks once a second; one past the clock's range never ticks. The ticks for a thread
    /// without a loop of its own come on the main loop. `block` must not throw.
    [[nodiscard]] virtual std::shared_ptr<Timer> scheduledTimer(double interval, std::function<void()> block) = 0;
};

}  // namespace tarvex::platform
