#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <optional>

#include "doctor/finding.h"
#include "platform/shared/file_descriptor.h"

namespace tarvex::tool {

/// A look in a process of its own, which begins at once: a driver that hangs holds up the end of the process that waits
/// for it, and a plug-in may end its process. Made while this process has no other thread that might hold a lock.
class SeparateLook {
public:
    explicit SeparateLook(const std::function<Findings()>& look);
    /// Kills a look that goes on, and does not wait for its end.
    ~SeparateLook();
    SeparateLook(const SeparateLook&) = delete;
    SeparateLook& operator=(const SeparateLook&) = delete;

    /// What was found; absent when that is not known by then. To be called once.
    std::optional<Findings> findings(std::chrono::steady_clock::time_point deadline);

private:
    pid_t process_ = -1;
    std::optional<platform::FileDescriptor> answer_;
};

}  // namespace tarvex::tool
