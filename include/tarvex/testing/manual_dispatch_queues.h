#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <mutex>

#include "tarvex/platform/dispatch.h"

namespace tarvex::testing {

/// Queues whose blocks run when a test runs them, on its thread. Thread-safe.
class TARVEX_EXPORT ManualDispatchQueues final : public platform::DispatchQueues {
public:
    void mainAsync(std::function<void()> block) override;
    void backgroundAfter(std::chrono::nanoseconds delay, std::function<void()> block) override;

    /// Runs the blocks of the main queue and those that they queue; returns their number.
    std::size_t runMain();

    /// Lets time pass: delayed blocks that become due run on the calling thread, in the order of their times.
    void advance(std::chrono::nanoseconds time);

    /// Number of delayed blocks that are not due yet.
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
