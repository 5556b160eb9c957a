#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "tarvex/platform/timer.h"

namespace tarvex::testing {

/// Timers that tick when a test says that time has passed. Thread-bound.
class TARVEX_EXPORT ManualTimerScheduler final : public platform::TimerScheduler {
public:
    ManualTimerScheduler();
    ~ManualTimerScheduler() override;

    /// As the library's own scheduler takes it: zero, a negative interval and one that is not a number tick once a
    /// second, one past the clock's range never ticks.
    [[nodiscard]] std::shared_ptr<platform::Timer> scheduledTimer(double interval,
                                                                  std::function<void()> block) override;

    /// Lets `seconds` pass: every tick that is due meanwhile runs, also of timers that a tick makes, in the order of
    /// their times and, at the same time, of their making. None is skipped.
    void advance(double seconds);

    /// The intervals, in seconds as they were asked for, of the timers that are not invalidated, in the order of their
    /// making.
    [[nodiscard]] std::vector<double> intervals() const;

private:
    class ManualTimer;

    [[nodiscard]] std::shared_ptr<ManualTimer> firstDueBy(std::chrono::nanoseconds end) const;

    std::chrono::nanoseconds now_ = std::chrono::nanoseconds(0);
    std::vector<std::shared_ptr<ManualTimer>> timers_;
};

}  // namespace tarvex::testing
