#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

#include "tarvex/platform/dispatch.h"

namespace tarvex::testing {

/// Queues whose blocks wait for the test. Blocks may be queued on any thread; they run on the test's.
class TARVEX_EXPORT ManualDispatchQueues final : public platform::DispatchQueues {
public:
    void mainAsync(std::function<void()> block) override;
    void backgroundAfter(std::chrono::nanoseconds delay, std::function<void()> block) override;

    /// Runs the blocks of the main queue, and those that they queue; returns how many there were.
    std::size_t runMain();

    /// Lets time pass for the delayed blocks: those that are due run, on the calling thread, in the order of their
    /// times.
    void advance(std::chrono::nanoseconds time);

    /// How many delayed blocks still wait.
    [[nodiscard]] std::size_t delayedCount() const;

private:
    std::function<void()> takeFirstMain();
    std::function<void()> takeFirstDueBy(std::chrono::nanoseconds end);

    mutable std::mutex mutex_;
    std::deque<std::function<void()>> main_;
    std::chrono::nanoseconds now_ = std::chrono::nanoseconds(0);
    std::multimap<std::chrono::nanoseconds, std::function<void()>> delayed_;
};

}  // namespace tarvex::testing
