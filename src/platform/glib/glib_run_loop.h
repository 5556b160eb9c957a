#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "tarvex/platform/run_loop.h"

namespace tarvex::platform {

/// The run loop of GLib's default main context, which GTK hosts and most Qt hosts run anyway: blocks then run without a
/// call of `run`.
///
/// `perform` keeps an order, also across nested runs, and runs one block per event, at the default priority. A block
/// that throws ends the process.
class GLibRunLoop final : public RunLoop {
public:
    /// Thread-safe; the blocks run on the thread that iterates the default context.
    GLibRunLoop();

    /// Drops the blocks that have not begun. To be called while no thread runs this loop, or by the thread that does.
    ~GLibRunLoop() override;

    GLibRunLoop(const GLibRunLoop&) = delete;
    GLibRunLoop& operator=(const GLibRunLoop&) = delete;

    /// An event may call it again: a nested run.
    void run() override;

    /// Ends the innermost run, or the next one.
    void stop() override;

    void perform(std::function<void()> block) override;

private:
    class BlockQueue;

    std::shared_ptr<BlockQueue> queue_;
    std::mutex mutex_;
    std::vector<std::atomic<bool>*> stopped_;  // one for each nested run
    bool stoppedBefore_ = false;
};

}  // namespace tarvex::platform
