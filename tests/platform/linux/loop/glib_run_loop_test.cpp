#include "platform/linux/loop/glib_run_loop.h"

#include <glib.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace tarvex::platform {
namespace {

using ::testing::ElementsAre;

TEST(GLibRunLoop, RunsBlocksLaterInOrderOnTheRunningThread) {
    GLibRunLoop loop;
    std::vector<int> order;
    std::vector<std::thread::id> threads;
    const auto record = [&](int n) {
        order.push_back(n);
        threads.push_back(std::this_thread::get_id());
    };
    loop.perform([&] {
        record(1);
        loop.perform([&] {
            record(4);
            loop.stop();
        });
        record(2);
    });
    loop.perform([&] { record(3); });
    EXPECT_TRUE(order.empty());

    loop.run();

    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(threads, ::testing::Each(std::this_thread::get_id()));
}

TEST(GLibRunLoop, TakesEveryBlockOfOtherThreadsInTheirOrder) {
    GLibRunLoop loop;
    constexpr int threadCount = 3;
    constexpr int blockCount = 500;
    std::vector<std::vector<int>> received(threadCount);
    int left = threadCount * blockCount;
    std::vector<std::jthread> threads;
    threads.reserve(threadCount);
    for (int t = 0; t < threadCount; ++t)
        threads.emplace_back([&, t] {
            for (int i = 0; i < blockCount; ++i)
                loop.perform([&, t, i] {
                    received[static_cast<std::size_t>(t)].push_back(i);
                    if (--left == 0) loop.stop();
                });
        });

    loop.run();

    for (const auto& numbers : received) {
        EXPECT_EQ(numbers.size(), blockCount);
        EXPECT_TRUE(std::ranges::is_sorted(numbers));
    }
}

TEST(GLibRunLoop, StopEndsTheRunAfterTheBlockThatIsRunning) {
    GLibRunLoop loop;
    std::vector<int> order;
    loop.perform([&] {
        loop.stop();
        order.push_back(1);
    });
    loop.perform([&] {
        order.push_back(2);
        loop.stop();
    });

    loop.run();
    EXPECT_THAT(order, ElementsAre(1));
    loop.run();
    EXPECT_THAT(order, ElementsAre(1, 2));
}

TEST(GLibRunLoop, IsStoppedByAnotherThread) {
    GLibRunLoop loop;
    std::jthread stopper;
    bool stopped = false;
    loop.perform([&] {
        stopper = std::jthread([&] {
            stopped = true;
            loop.stop();
        });
    });
    loop.run();
    EXPECT_TRUE(stopped);
}

TEST(GLibRunLoop, StopWithoutARunHasNoEffect) {
    GLibRunLoop loop;
    loop.stop();
    bool ran = false;
    loop.perform([&] {
        ran = true;
        loop.stop();
    });
    loop.run();
    EXPECT_TRUE(ran);
}

TEST(GLibRunLoop, NestedRunTakesTheNextBlocksAndEndsAlone) {
    GLibRunLoop loop;
    std::vector<int> order;
    loop.perform([&] {
        order.push_back(1);
        loop.run();
        order.push_back(3);
    });
    loop.perform([&] {
        order.push_back(2);
        loop.stop();
    });
    loop.perform([&] {
        order.push_back(4);
        loop.stop();
    });
    loop.run();
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4));
}

TEST(GLibRunLoop, WorksWhenTheHostIteratesTheContextItself) {
    GLibRunLoop loop;
    bool ran = false;
    loop.perform([&] { ran = true; });
    for (int i = 0; i < 10 && !ran; ++i)
        g_main_context_iteration(nullptr, FALSE);
    EXPECT_TRUE(ran);
    EXPECT_FALSE(g_main_context_pending(nullptr)) << "an empty queue wakes the host";
}

TEST(GLibRunLoop, RunsBlocksBesideAHostThatNeverRests) {
    GLibRunLoop loop;
    const guint busy =
        g_idle_add_full(G_PRIORITY_DEFAULT, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
    loop.perform([&] { loop.stop(); });
    loop.run();
    EXPECT_TRUE(g_source_remove(busy));
}

TEST(GLibRunLoop, DropsAndReleasesPendingBlocksWhenDestroyed) {
    const auto held = std::make_shared<int>(0);
    bool ran = false;
    {
        GLibRunLoop loop;
        loop.perform([&ran, held] { ran = true; });
    }
    EXPECT_EQ(held.use_count(), 1);
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    EXPECT_FALSE(ran);
}

TEST(GLibRunLoop, MayBeDestroyedByItsOwnBlock) {
    auto loop = std::make_unique<GLibRunLoop>();
    bool secondRan = false;
    loop->perform([&] { loop.reset(); });
    loop->perform([&] { secondRan = true; });
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
    EXPECT_EQ(loop, nullptr);
    EXPECT_FALSE(secondRan);
}

TEST(GLibRunLoopDeathTest, ThrowingBlockTerminates) {
    GLibRunLoop loop;
    loop.perform([] { throw std::runtime_error("a block's own"); });
    EXPECT_DEATH(loop.run(), "a block's own");
}

}  // namespace
}  // namespace tarvex::platform
