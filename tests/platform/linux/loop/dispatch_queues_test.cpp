#include "platform/linux/loop/dispatch_queues.h"

#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <semaphore>
#include <vector>

#include "testing/manual_run_loop.h"

namespace tarvex::platform {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

TEST(LinuxDispatchQueues, MainBlocksWaitForTheMainLoop) {
    tarvex::testing::ManualRunLoop loop;
    LinuxDispatchQueues queues(loop);
    std::vector<int> order;
    queues.mainAsync([&] { order.push_back(1); });
    queues.mainAsync([&] { order.push_back(2); });
    EXPECT_TRUE(order.empty());
    loop.runPending();
    EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST(LinuxDispatchQueues, DelayedBlocksRunInTheOrderOfTheirDeadlinesAndNotBefore) {
    tarvex::testing::ManualRunLoop loop;
    LinuxDispatchQueues queues(loop);
    std::vector<int> order;
    std::binary_semaphore allQueued(0);
    std::promise<std::chrono::steady_clock::time_point> end;
    const auto start = std::chrono::steady_clock::now();
    queues.backgroundAfter(0ms, [&] { allQueued.acquire(); });
    queues.backgroundAfter(500ms, [&] {
        order.push_back(4);
        end.set_value(std::chrono::steady_clock::now());
    });
    queues.backgroundAfter(0ms, [&] { order.push_back(2); });
    queues.backgroundAfter(1ms, [&] { order.push_back(3); });
    queues.backgroundAfter(std::chrono::nanoseconds::min(), [&] { order.push_back(1); });
    allQueued.release();
    EXPECT_GE(end.get_future().get() - start, 500ms);
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4));
}

TEST(LinuxDispatchQueues, AnEarlierDeadlineWakesTheThreadThatSleepsForALaterOne) {
    tarvex::testing::ManualRunLoop loop;
    LinuxDispatchQueues queues(loop);
    queues.backgroundAfter(1h, [] {});
    std::promise<void> done;
    queues.backgroundAfter(5ms, [&] { done.set_value(); });
    EXPECT_EQ(done.get_future().wait_for(10min), std::future_status::ready);
}

TEST(LinuxDispatchQueues, BlockMayQueueTheNextOne) {
    tarvex::testing::ManualRunLoop loop;
    LinuxDispatchQueues queues(loop);
    std::promise<std::thread::id> done;
    queues.backgroundAfter(0ms,
                           [&] { queues.backgroundAfter(1ms, [&] { done.set_value(std::this_thread::get_id()); }); });
    EXPECT_NE(done.get_future().get(), std::this_thread::get_id());
}

TEST(LinuxDispatchQueues, DestructionDropsWaitingBlocksAndReleasesWhatTheyHold) {
    tarvex::testing::ManualRunLoop loop;
    const auto held = std::make_shared<int>(0);
    {
        LinuxDispatchQueues queues(loop);
        queues.backgroundAfter(std::chrono::nanoseconds::max(), [held] { *held = 1; });
        queues.backgroundAfter(1h, [held] { *held = 1; });
    }
    EXPECT_EQ(*held, 0);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(LinuxDispatchQueues, DestructionWaitsForTheBlockThatRuns) {
    tarvex::testing::ManualRunLoop loop;
    std::binary_semaphore began(0);
    bool finished = false;
    {
        LinuxDispatchQueues queues(loop);
        queues.backgroundAfter(0ms, [&] {
            began.release();
            std::this_thread::sleep_for(20ms);
            finished = true;
        });
        began.acquire();
    }
    EXPECT_TRUE(finished);
}

TEST(LinuxDispatchQueues, BlockMayDestroyTheQueues) {
    tarvex::testing::ManualRunLoop loop;
    auto queues = std::make_unique<LinuxDispatchQueues>(loop);
    std::promise<void> destroyed;
    std::binary_semaphore ready(0);
    queues->backgroundAfter(0ms, [&] {
        ready.acquire();
        queues.reset();
        destroyed.set_value();
    });
    bool dropped = true;
    queues->backgroundAfter(0ms, [&] { dropped = false; });
    ready.release();
    destroyed.get_future().wait();
    EXPECT_TRUE(dropped);
}

}  // namespace
}  // namespace tarvex::platform
