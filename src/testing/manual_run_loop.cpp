#include "tarvex/testing/manual_run_loop.h"

#include <utility>

namespace tarvex::testing {

void ManualRunLoop::run() {
    std::unique_lock lock(mutex_);
    while (!stopped_) {
        if (blocks_.empty()) {
            changed_.wait(lock);
            continue;
        }
        const auto block = std::move(blocks_.front());
        blocks_.pop_front();
        lock.unlock();
        block();
        lock.lock();
    }
    stopped_ = false;
}

void ManualRunLoop::stop() {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
    changed_.notify_all();
}

void ManualRunLoop::perform(std::function<void()> block) {
    const std::lock_guard lock(mutex_);
    blocks_.push_back(std::move(block));
    changed_.notify_all();
}

std::size_t ManualRunLoop::runPending() {
    std::size_t count = 0;
    for (; const auto block = takeFirst(); ++count)
        block();
    return count;
}

void ManualRunLoop::waitForPending() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !blocks_.empty(); });
}

std::size_t ManualRunLoop::pendingCount() const {
    const std::lock_guard lock(mutex_);
    return blocks_.size();
}

std::function<void()> ManualRunLoop::takeFirst() {
    const std::lock_guard lock(mutex_);
    if (blocks_.empty()) return nullptr;
    auto block = std::move(blocks_.front());
    blocks_.pop_front();
    return block;
}

}  // namespace tarvex::testing
