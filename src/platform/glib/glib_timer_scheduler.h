#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "tarvex/platform/timer.h"

namespace tarvex::platform {

/// Repeating timers on GLib: on the calling thread's thread-default context, else on the default one, which the main
/// thread iterates. Thread-safe.
///
/// Deadlines lie on the grid `start + n × interval` of the monotonic clock, however long the blocks take: a deadline
/// that passes while the block runs, or while the loop is busy, is skipped. Intervals below a millisecond are
/// limited to it. A tick does not interrupt itself: while its block runs the loop, the timer pauses. A block that
/// throws ends the process.
class GLibTimerScheduler final : public TimerScheduler {
public:
    GLibTimerScheduler() = default;
    /// `onFirstMainTimer` is called once, at the first timer for the main loop.
    explicit GLibTimerScheduler(std::function<void()> onFirstMainTimer)
        : onFirstMainTimer_(std::move(onFirstMainTimer)) {}

    [[nodiscard]] std::shared_ptr<Timer> scheduledTimer(double interval, std::function<void()> block) override;

private:
    std::function<void()> onFirstMainTimer_;
    std::once_flag first_;
};

}  // namespace tarvex::platform
