#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include "tarvex/platform/timer.h"

namespace tarvex::testing {

/// Timers that tick when a test lets time pass. Thread-bound.
class TARVEX_EXPORT ManualTimerScheduler final : public platform::TimerScheduler {
public:
    ManualTimerScheduler();
    ~ManualTimerScheduler() override;

    /// Takes `interval` as the library's own scheduler does: zero, a negative number and NaN tick once a second, an
    /// interval past the clock's range never.
    [[nodiscard]] std::shared_ptr<platform::Timer> scheduledTimer(double interval,
                                                                  std::function<void()> block) override;

    /// Lets `seconds` pass: runs every tick that becomes due, also of timers that a tick creates, in the order of their
    /// times, those of the same time in the order of creation.
    void advance(double seconds);

    /// Intervals of the valid timers in seconds, as they were passed, in the order of creation.
    [[nodiscard]] std::vector<double> intervals() const;

private:
    class ManualTimer;

    [[nodiscard]] std::shared_ptr<ManualTimer> firstDueBy(std::chrono::nanoseconds end) const;

    std::chrono::nanoseconds now_ = std::chrono::nanoseconds(0);
    std::vector<std::shared_ptr<ManualTimer>> timers_;
};

}  // namespace tarvex::testing
