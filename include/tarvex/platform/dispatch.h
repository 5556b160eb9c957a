#pragma once

#include <chrono>
#include <functional>

#include "tarvex/export.h"

namespace tarvex::platform {

/// The process's queues for work that runs later. Thread-safe.
class TARVEX_EXPORT DispatchQueues {
public:
    virtual ~DispatchQueues() = default;

    /// Runs `block` later on the main thread, after what was queued before; never inline.
    virtual void mainAsync(std::function<void()> block) = 0;

    /// Runs `block` on a background thread, no earlier than after `delay`. Blocks that still wait when the process ends
    /// are dropped. For deadlines of the library: a block is short and calls no code of the host. It must not throw.
    virtual void backgroundAfter(std::chrono::nanoseconds delay, std::function<void()> block) = 0;
};

}  // namespace tarvex::platform
