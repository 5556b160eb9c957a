#pragma once

#include <mutex>

namespace tarvex {

/// A mutex that a thread which has just released it does not take again before the one that waits.
class FairMutex {
public:
    void lock() {
        const std::lock_guard turn(turn_);
        mutex_.lock();
    }
    void unlock() { mutex_.unlock(); }

private:
    std::mutex turn_;  // held by the one that is next
    std::mutex mutex_;
};

}  // namespace tarvex
