#include <algorithm>
#include <cmath>
#include <cstdint>
#include <utility>

#include "platform/shared/deadline_grid.h"
#include "tarvex/testing/manual_dispatch_queues.h"
#include "tarvex/testing/manual_run_loop.h"
#include "tarvex/testing/manual_timer_scheduler.h"

namespace tarvex::testing {

using platform::saturatingSum;
using std::chrono::nanoseconds;

void ManualDispatchQueues::mainAsync(std::function<void()> block) {
    const std::lock_guard lock(mutex_);
    main_.push_back(std::move(block));
}

void ManualDispatchQueues::backgroundAfter(nanoseconds delay, std::function<void()> block) {
    const std::lock_guard lock(mutex_);
    delayed_.emplace(saturatingSum(now_, std::max(nanoseconds(0), delay)), std::move(block));
}

std::size_t ManualDispatchQueues::runMain() {
    std::size_t count = 0;
    for (; const auto block = takeFirstMain(); ++count)
        block();
    return count;
}

void ManualDispatchQueues::advance(nanoseconds time) {
    nanoseconds end;
    {
        const std::lock_guard lock(mutex_);
        end = saturatingSum(now_, std::max(nanoseconds(0), time));
    }
    while (const auto block = takeFirstDueBy(end))
        block();
    const std::lock_guard lock(mutex_);
    now_ = end;
}

std::size_t ManualDispatchQueues::delayedCount() const {
    const std::lock_guard lock(mutex_);
    return delayed_.size();
}

std::function<void()> ManualDispatchQueues::takeFirstMain() {
    const std::lock_guard lock(mutex_);
    if (main_.empty()) return nullptr;
    auto block = std::move(main_.front());
    main_.pop_front();
    return block;
}

std::function<void()> ManualDispatchQueues::takeFirstDueBy(nanoseconds end) {
    const std::lock_guard lock(mutex_);
    if (delayed_.empty() || delayed_.begin()->first > end) return nullptr;
    now_ = delayed_.begin()->first;
    return std::move(delayed_.extract(delayed_.begin()).mapped());
}

void ManualRunLoop::run() {
    std::unique_lock lock(mutex_);
    while (!stopped_) {
        if (blocks_.empty()) {
            changed_.wait(lock);
            continue;
        }
        const auto block = std::move(blocks_.front());
        blocks_.pop_front();
        lock.unlock();
        block();
        lock.lock();
    }
    stopped_ = false;
}

void ManualRunLoop::stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
}

void ManualRunLoop::perform(std::function<void()> block) {
    const std::lock_guard lock(mutex_);
    blocks_.push_back(std::move(block));
    changed_.notify_all();
}

std::size_t ManualRunLoop::runPending() {
    std::size_t count = 0;
    for (; const auto block = takeFirst(); ++count)
        block();
    return count;
}

void ManualRunLoop::waitForPending() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !blocks_.empty(); });
}

std::size_t ManualRunLoop::pendingCount() const {
    const std::lock_guard lock(mutex_);
    return blocks_.size();
}

std::function<void()> ManualRunLoop::takeFirst() {
    const std::lock_guard lock(mutex_);
    if (blocks_.empty()) return nullptr;
    auto block = std::move(blocks_.front());
    blocks_.pop_front();
    return block;
}

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
