#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

#include "tarvex/platform/dispatch.h"

namespace tarvex::platform {

class RunLoop;

/// The main queue on a run loop, and one background thread for delayed blocks. Thread-safe.
///
/// The thread starts with the first delayed block and sleeps until a block is due. Blocks run one after the other, in
/// the order of their deadlines, so none should take long. A block that throws ends the process.
class LinuxDispatchQueues final : public DispatchQueues {
public:
    /// `main` outlives the queues.
    explicit LinuxDispatchQueues(RunLoop& main);

    /// Drops the blocks that have not begun, and waits for the one that runs. Not to be called by a block.
    ~LinuxDispatchQueues() override;

    LinuxDispatchQueues(const LinuxDispatchQueues&) = delete;
    LinuxDispatchQueues& operator=(const LinuxDispatchQueues&) = delete;

    void mainAsync(std::function<void()> block) override;
    void backgroundAfter(std::chrono::nanoseconds delay, std::function<void()> block) override;

private:
    class DelayedBlocks;

    RunLoop& main_;
    std::unique_ptr<DelayedBlocks> delayed_;
    std::once_flag started_;
    std::jthread thread_;  // ends before what it uses
};

/// Logs one warning if the main thread runs nothing that is queued for it within `patience` of this call.
void warnUnlessMainLoopRuns(DispatchQueues& queues, std::chrono::nanoseconds patience);

}  // namespace tarvex::platform
