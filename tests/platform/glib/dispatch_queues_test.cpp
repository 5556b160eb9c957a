#include "platform/glib/dispatch_queues.h"

#include "prelude.h"
#include "tarvex/testing/manual_run_loop.h"

namespace tarvex::platform {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

class DispatchQueuesTest : public ::testing::Test {
protected:
    std::function<void()> record(int n) {
        return [this, n] { order.push_back(n); };
    }

    testing::ManualRunLoop loop;
    std::unique_ptr<LinuxDispatchQueues> queues = std::make_unique<LinuxDispatchQueues>(loop);
    std::vector<int> order;
    std::binary_semaphore ready{0};
};

TEST_F(DispatchQueuesTest, DelayedBlocksRunInTheOrderOfTheirDeadlinesAndNotBefore) {
    std::promise<steady_clock::time_point> end;
    const auto start = steady_clock::now();
    queues->backgroundAfter(0ms, [&] { ready.acquire(); });
    queues->backgroundAfter(500ms, [&] { end.set_value(steady_clock::now()); });
    queues->backgroundAfter(0ms, record(2));
    queues->backgroundAfter(1ms, record(3));
    queues->backgroundAfter(nanoseconds::min(), record(1));
    ready.release();
    EXPECT_GE(end.get_future().get() - start, 500ms);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST_F(DispatchQueuesTest, DestructionDropsWaitingBlocksAndWaitsForTheOneThatRuns) {
    const auto held = std::make_shared<int>(0);
    queues->backgroundAfter(nanoseconds::max(), [held] { *held = 1; });
    queues->backgroundAfter(1h, [held] { *held = 1; });
    bool finished = false;
    queues->backgroundAfter(0ms, [&] {
        ready.release();
        std::this_thread::sleep_for(20ms);
        finished = true;
    });
    ready.acquire();
    queues.reset();
    EXPECT_TRUE(finished);
    EXPECT_EQ(*held, 0);
    EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace tarvex::platform
