#include "storage/fair_mutex.h"

#include <unistd.h>

#include "prelude.h"

namespace tarvex {
namespace {

bool isAsleep(pid_t thread) {
    const std::string status = contentsOf("/proc/self/task/" + std::to_string(thread) + "/stat");
    return status.contains(") S ");
}

TEST(FairMutex, GoesToTheThreadThatWaitsBeforeTheOneThatReleasedIt) {
    FairMutex mutex;
    std::atomic<pid_t> waiting = 0;
    bool hadIt = false;
    mutex.lock();
    const std::jthread other([&] {
        waiting = gettid();
        const std::lock_guard lock(mutex);
        hadIt = true;
    });
    while (waiting == 0 || !isAsleep(waiting))
        std::this_thread::yield();
    mutex.unlock();
    const std::lock_guard lock(mutex);
    EXPECT_TRUE(hadIt);
}

}  // namespace
}  // namespace tarvex
