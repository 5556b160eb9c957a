#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <utility>

namespace tarvex {

/// A mutex that a thread which has just released it does not take again before one that waits.
class FairMutex {
public:
    void lock() {
        std::unique_lock guard(mutex_);
        if (!std::exchange(held_, true)) return;
        handedOver_.wait(guard, [this, place = queueUp()] { return isTurnOf(place); });
        take();
    }

    /// False when `wait` passed before the mutex was free.
    template <typename Duration>
    [[nodiscard]] bool try_lock_for(Duration wait) {
        std::unique_lock guard(mutex_);
        if (!std::exchange(held_, true)) return true;
        const bool mine = handedOver_.wait_for(guard, wait, [this, place = queueUp()] { return isTurnOf(place); });
        if (mine)
            take();
        else
            --waiting_;
        return mine;
    }

    void unlock() {
        const std::lock_guard guard(mutex_);
        handingOver_ = waiting_ > 0;
        held_ = handingOver_;
        lastInvited_ = lastPlace_;  // later threads wait behind those
        if (handingOver_) handedOver_.notify_all();
    }

private:
    std::uint64_t queueUp() {
        ++waiting_;
        return ++lastPlace_;
    }
    bool isTurnOf(std::uint64_t place) const { return handingOver_ && place <= lastInvited_; }
    void take() {
        handingOver_ = false;
        --waiting_;
    }

    std::mutex mutex_;  // guards the members below, for moments only
    std::condition_variable handedOver_;
    bool held_ = false;
    bool handingOver_ = false;
    int waiting_ = 0;
    std::uint64_t lastPlace_ = 0;
    std::uint64_t lastInvited_ = 0;  // one of those up to here may take the mutex
};

}  // namespace tarvex
