#include "tarvex/testing/manual_dispatch_queues.h"

#include <algorithm>
#include <utility>

#include "platform/shared/deadline_grid.h"

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

}  // namespace tarvex::testing
