#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "collector/threads.h"

namespace tarvex::collector {

/// Threads for work that waits: a server's own must not. Thread-safe.
class Workers {
public:
    explicit Workers(int count) {
        for (int worker = 0; worker < count; ++worker)
            threads_.emplace_back([this] {
                beginThread("worker");
                work();
            });
    }
    /// Does what is under way to its end, and drops the rest.
    ~Workers() {
        {
            const std::lock_guard lock(mutex_);
            isEnding_ = true;
            changed_.notify_all();
        }
        for (std::thread& thread : threads_)
            thread.join();
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    void run(std::function<void()> task) {
        const std::lock_guard lock(mutex_);
        tasks_.push_back(std::move(task));
        changed_.notify_one();
    }

private:
    void work() {
        while (true) {
            std::unique_lock lock(mutex_);
            changed_.wait(lock, [this] { return isEnding_ || !tasks_.empty(); });
            if (isEnding_) return;
            const auto task = std::move(tasks_.front());
            tasks_.pop_front();
            lock.unlock();
            task();
        }
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> tasks_;
    bool isEnding_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace tarvex::collector
