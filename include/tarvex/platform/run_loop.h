#pragma once

#include <functional>

#include "tarvex/export.h"

namespace tarvex::platform {

/// The main thread's event loop. A host whose toolkit runs the loop already need not call `run`.
class TARVEX_EXPORT RunLoop {
public:
    /// The main run loop of the current platform.
    static RunLoop& main();

    virtual ~RunLoop() = default;

    /// Handles events on the calling thread, the main thread, until `stop`.
    virtual void run() = 0;

    /// Lets `run` return once the event that is being handled is done; before it, lets the next `run` return at once.
    /// Thread-safe.
    virtual void stop() = 0;

    /// Queues `block` to run later on the main thread, in the order of the calls; never runs it inline. Thread-safe.
    virtual void perform(std::function<void()> block) = 0;
};

}  // namespace tarvex::platform
