#include "tarvex/testing/manual_timer_scheduler.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "platform/shared/deadline_grid.h"

namespace tarvex::testing {

namespace {

using platform::saturatingSum;
using std::chrono::nanoseconds;

// Whole nanoseconds: ten times 0.1 s is 1 s.
nanoseconds saturated(double seconds) {
    const double count = std::round(seconds * 1e9);
    return count < static_cast<double>(nanoseconds::max().count()) ? nanoseconds(static_cast<std::int64_t>(count))
                                                                   : nanoseconds::max();
}

nanoseconds tickInterval(double seconds) {
    return seconds > 0 ? std::max(nanoseconds(1), saturated(seconds)) : std::chrono::seconds(1);
}

}  // namespace

class ManualTimerScheduler::ManualTimer final : public platform::Timer {
public:
    ManualTimer(double interval, nanoseconds now, std::function<void()> block)
        : interval_(interval),
          due_(saturatingSum(now, tickInterval(interval))),
          block_(std::make_shared<std::function<void()>>(std::move(block))) {}

    void invalidate() override { block_.reset(); }

    void tick() {
        due_ = saturatingSum(due_, tickInterval(interval_));
        const auto block = block_;  // the block may invalidate the timer
        (*block)();
    }

    [[nodiscard]] bool isValid() const { return block_ != nullptr; }
    [[nodiscard]] double interval() const { return interval_; }
    [[nodiscard]] nanoseconds due() const { return due_; }

private:
    double interval_;
    nanoseconds due_;
    std::shared_ptr<std::function<void()>> block_;
};

ManualTimerScheduler::ManualTimerScheduler() = default;
ManualTimerScheduler::~ManualTimerScheduler() = default;

std::shared_ptr<platform::Timer> ManualTimerScheduler::scheduledTimer(double interval, std::function<void()> block) {
    std::erase_if(timers_, [](const auto& timer) { return !timer->isValid(); });
    return timers_.emplace_back(std::make_shared<ManualTimer>(interval, now_, std::move(block)));
}

void ManualTimerScheduler::advance(double seconds) {
    const nanoseconds end = saturatingSum(now_, saturated(std::max(0.0, seconds)));
    while (const auto timer = firstDueBy(end)) {
        now_ = timer->due();
        timer->tick();
    }
    now_ = end;
}

std::vector<double> ManualTimerScheduler::intervals() const {
    std::vector<double> intervals;
    for (const auto& timer : timers_)
        if (timer->isValid()) intervals.push_back(timer->interval());
    return intervals;
}

std::shared_ptr<ManualTimerScheduler::ManualTimer> ManualTimerScheduler::firstDueBy(nanoseconds end) const {
    std::shared_ptr<ManualTimer> first;
    for (const auto& timer : timers_) {
        const bool isDue = timer->isValid() && timer->due() <= end && timer->due() != nanoseconds::max();
        if (isDue && (!first || timer->due() < first->due())) first = timer;
    }
    return first;
}

}  // namespace tarvex::testing
