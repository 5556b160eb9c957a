#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

#include "tarvex/platform/run_loop.h"

namespace tarvex::testing {

/// A main loop that a test turns by hand. `perform` and `stop` may be called on any thread.
class TARVEX_EXPORT ManualRunLoop final : public platform::RunLoop {
public:
    /// Runs blocks as they come, until `stop`. A stop before it counts.
    void run() override;
    void stop() override;
    void perform(std::function<void()> block) override;

    /// Runs the blocks that are queued, and those that they queue; returns how many there were.
    std::size_t runPending();

    /// Waits until another thread has queued a block; at once when one is queued.
    void waitForPending();

    [[nodiscard]] std::size_t pendingCount() const;

private:
    std::function<void()> takeFirst();

    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> blocks_;
    bool stopped_ = false;
};

}  // namespace tarvex::testing
