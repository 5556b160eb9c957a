#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>

#include "tarvex/platform/run_loop.h"

namespace tarvex::testing {

/// A main loop whose blocks run when a test runs them. Thread-safe.
class TARVEX_EXPORT ManualRunLoop final : public platform::RunLoop {
public:
    /// Runs blocks as they are queued, until `stop`; returns at once when `stop` was called before.
    void run() override;
    void stop() override;
    void perform(std::function<void()> block) override;

    /// Runs the blocks that are queued and those that they queue; returns their number.
    std::size_t runPending();

    /// Waits until a block is queued.
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
