#include "platform/glib/glib_run_loop.h"

#include <glib.h>

#include "prelude.h"

namespace tarvex::platform {
namespace {

class GLibRunLoopTest : public ::testing::Test {
protected:
    void record(int n) {
        order.push_back(n);
        EXPECT_EQ(std::this_thread::get_id(), testThread);
    }
    void performRecord(int n) {
        loop->perform([this, n] { record(n); });
    }
    void performStop(int n) {
        loop->perform([this, n] {
            loop->stop();
            record(n);
        });
    }

    std::unique_ptr<GLibRunLoop> loop = std::make_unique<GLibRunLoop>();
    std::vector<int> order;
    const std::thread::id testThread = std::this_thread::get_id();
};

TEST_F(GLibRunLoopTest, RunsBlocksLaterInOrderOnTheRunningThread) {
    loop->perform([&] {
        record(1);
        performStop(4);
        record(2);
    });
    performRecord(3);
    EXPECT_THAT(order, IsEmpty());
    loop->run();
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4));
}

TEST_F(GLibRunLoopTest, TakesEveryBlockOfOtherThreadsInTheirOrder) {
    constexpr int blockCount = 500;
    std::array<std::vector<int>, 3> received;
    int left = blockCount * static_cast<int>(received.size());
    std::vector<std::jthread> threads;
    for (auto& numbers : received)
        threads.emplace_back([&] {
            for (int i = 0; i < blockCount; ++i)
                loop->perform([&, i] {
                    numbers.push_back(i);
                    if (--left == 0) loop->stop();
                });
        });
    loop->run();
    for (const auto& numbers : received) {
        EXPECT_EQ(numbers.size(), blockCount);
        EXPECT_TRUE(std::ranges::is_sorted(numbers));
    }
}

TEST_F(GLibRunLoopTest, AStopBeforeARunEndsThatRunAndNoOther) {
    loop->stop();
    performStop(1);
    loop->run();
    EXPECT_THAT(order, IsEmpty());
    loop->run();
    EXPECT_THAT(order, ElementsAre(1));
}

TEST_F(GLibRunLoopTest, NestedRunTakesTheNextBlocksAndEndsAlone) {
    loop->perform([&] {
        record(1);
        loop->run();
        record(3);
    });
    performStop(2);
    performStop(4);
    loop->run();
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4));
}

TEST_F(GLibRunLoopTest, WorksWhenTheHostIteratesTheContextItself) {
    performRecord(1);
    for (int i = 0; i < 10 && order.empty(); ++i)
        g_main_context_iteration(nullptr, FALSE);
    EXPECT_THAT(order, ElementsAre(1));
    EXPECT_FALSE(g_main_context_pending(nullptr)) << "an empty queue wakes the host";
}

TEST_F(GLibRunLoopTest, RunsBlocksBesideAHostThatNeverRests) {
    const guint busy =
        g_idle_add_full(G_PRIORITY_DEFAULT, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
    performStop(1);
    loop->run();
    EXPECT_TRUE(g_source_remove(busy));
}

TEST_F(GLibRunLoopTest, DropsAndReleasesPendingBlocksWhenDestroyedAlsoByItsOwnBlock) {
    const auto held = std::make_shared<int>(0);
    for (const bool byItsOwnBlock : {false, true}) {
        loop = std::make_unique<GLibRunLoop>();
        if (byItsOwnBlock) loop->perform([&] { loop.reset(); });
        loop->perform([held] { ++*held; });
        if (!byItsOwnBlock) loop.reset();
        while (g_main_context_iteration(nullptr, FALSE)) {
        }
        EXPECT_EQ(loop, nullptr);
        EXPECT_EQ(held.use_count(), 1);
        EXPECT_EQ(*held, 0);
    }
}

using GLibRunLoopDeathTest = GLibRunLoopTest;

TEST_F(GLibRunLoopDeathTest, ThrowingBlockTerminates) {
    loop->perform([] { throw std::runtime_error("a block's own"); });
    EXPECT_DEATH(loop->run(), "a block's own");
}

}  // namespace
}  // namespace tarvex::platform
