#pragma once

#include <functional>

#include "tarvex/export.h"

namespace tarvex::platform {

/// The main thread's event loop. Thread-safe, except `run`. A host whose toolkit runs the loop need not call `run`.
class TARVEX_EXPORT RunLoop {
public:
    /// The main run loop of the current platform.
    static RunLoop& main();

    virtual ~RunLoop() = default;

    /// Handles events on the calling thread, until `stop`. Thread-bound.
    virtual void run() = 0;

    /// Lets `run` return after the event that it is handling; without a `run`, lets the next one return at once.
    virtual void stop() = 0;

    /// Queues `block` to run later on the main thread, in the order of the calls; never runs it inline.
    virtual void perform(std::function<void()> block) = 0;
};

}  // namespace tarvex::platform
