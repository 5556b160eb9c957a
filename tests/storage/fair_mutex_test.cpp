#include "storage/fair_mutex.h"

#include "prelude.h"
#include "sleeping_thread.h"

namespace tarvex {

TEST(FairMutex, GoesToTheThreadThatWaitsBeforeTheOneThatReleasedIt) {
    FairMutex mutex;
    bool hadIt = false;
    mutex.lock();
    const test::SleepingThread other([&] {
        const std::lock_guard lock(mutex);
        hadIt = true;
    });
    mutex.unlock();
    const std::lock_guard lock(mutex);
    EXPECT_TRUE(hadIt);
}

}  // namespace tarvex
