#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

#include "collector/threads.h"

namespace tarvex::collector {

/// Does its work at once and then once a day, on a thread of its own.
class Daily {
public:
    explicit Daily(std::function<void()> work)
        : thread_([this, work = std::move(work)] {
              beginThread("daily");
              std::unique_lock lock(mutex_);
              do {
                  lock.unlock();
                  work();
                  lock.lock();
              } while (!changed_.wait_for(lock, std::chrono::days(1), [this] { return isEnding_; }));
          }) {}
    ~Daily() {
        {
            const std::lock_guard lock(mutex_);
            isEnding_ = true;
            changed_.notify_all();
        }
        thread_.join();
    }
    Daily(const Daily&) = delete;
    Daily& operator=(const Daily&) = delete;

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool isEnding_ = false;
    std::thread thread_;
};

}  // namespace tarvex::collector
