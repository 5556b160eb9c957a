#pragma once

#include <unistd.h>

#include "prelude.h"

namespace tarvex::test {

/// A thread of this process that runs `work`, made only once it waits in it for something, such as a lock.
class SleepingThread {
public:
    explicit SleepingThread(std::function<void()> work) {
        std::atomic<pid_t> id = 0;
        thread_ = std::jthread([&id, work = std::move(work)] {
            id = gettid();
            work();
        });
        while (id == 0 || !isAsleep(id))
            std::this_thread::yield();
    }

private:
    static bool isAsleep(pid_t thread) {
        return contentsOf("/proc/self/task/" + std::to_string(thread) + "/stat").contains(") S ");
    }

    std::jthread thread_;
};

}  // namespace tarvex::test
