#include "platform/linux/loop/glib_timer_scheduler.h"

#include <glib.h>
#include <gmock/gmock.h>

#include <limits>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "platform/linux/deadline_grid.h"

namespace tarvex::platform {
namespace {

void iterateUntil(const std::function<bool()>& done, GMainContext* context = nullptr) {
    while (!done())
        g_main_context_iteration(context, TRUE);
}

/// The time until the default context's next source is due, in milliseconds; -1 when there is none.
int timeUntilNextTick() {
    GMainContext* context = g_main_context_default();
    EXPECT_TRUE(g_main_context_acquire(context));
    int priority = 0;
    g_main_context_prepare(context, &priority);
    int timeout = -1;
    GPollFD descriptors[8];
    g_main_context_query(context, G_MAXINT, &timeout, descriptors, 8);
    g_main_context_release(context);
    return timeout;
}

TEST(GLibTimerScheduler, TicksAgainAndAgainAlsoWithoutItsReference) {
    GLibTimerScheduler scheduler;
    int ticks = 0;
    std::weak_ptr<Timer> observed;
    {
        const auto timer = scheduler.scheduledTimer(0.002, [&] { ++ticks; });
        observed = timer;
    }
    EXPECT_EQ(ticks, 0);
    iterateUntil([&] { return ticks >= 3; });
    EXPECT_TRUE(observed.expired());
}

TEST(GLibTimerScheduler, InvalidateInsideTheBlockEndsTheTicksAndReleasesWhatTheBlockHolds) {
    GLibTimerScheduler scheduler;
    const auto held = std::make_shared<int>(0);
    std::shared_ptr<Timer> timer;
    timer = scheduler.scheduledTimer(0.001, [&timer, held] {
        timer->invalidate();
        ++*held;  // what the block holds outlives its invalidation
    });
    iterateUntil([&] { return *held == 1; });
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(timeUntilNextTick(), -1);
    timer->invalidate();
}

TEST(GLibTimerScheduler, InvalidateReleasesWhatTheBlockHoldsAtOnce) {
    GLibTimerScheduler scheduler;
    const auto held = std::make_shared<int>(0);
    const auto timer = scheduler.scheduledTimer(1000, [held] {});
    EXPECT_EQ(held.use_count(), 2);
    timer->invalidate();
    EXPECT_EQ(held.use_count(), 1);
}

TEST(GLibTimerScheduler, BlockMayDropTheLastReferenceToItsTimer) {
    GLibTimerScheduler scheduler;
    std::shared_ptr<Timer> timer;
    int ticks = 0;
    timer = scheduler.scheduledTimer(0.001, [&] {
        timer->invalidate();
        timer.reset();
        ++ticks;
    });
    iterateUntil([&] { return ticks == 1; });
    EXPECT_EQ(timeUntilNextTick(), -1);
}

TEST(DeadlineGrid, NeitherDriftsNorCatchesUp) {
    using std::chrono::microseconds;
    constexpr microseconds interval(50);
    const auto at = [](std::int64_t microsecond) { return Instant(microseconds(microsecond)); };
    struct Case {
        std::int64_t now;
        std::int64_t expected;
    };
    for (const Case& c :
         {Case{1000, 1050}, Case{1001, 1050}, Case{1049, 1050}, Case{1050, 1100}, Case{1099, 1100}, Case{1234, 1250}})
        EXPECT_EQ(nextDeadline(at(1000), interval, at(c.now)), at(c.expected)) << c.now;
    EXPECT_EQ(nextDeadline(endOfTime - interval, interval, endOfTime - interval), endOfTime);
    EXPECT_EQ(nextDeadline(endOfTime - interval, interval, endOfTime), std::nullopt);
    EXPECT_EQ(nextDeadline(at(1000), microseconds::max(), at(2000)), std::nullopt);
}

TEST(GLibTimerScheduler, NeverTicksBeforeItsDeadlinesAndSkipsWhatItMissed) {
    GLibTimerScheduler scheduler;
    constexpr gint64 interval = 10'000;
    const gint64 before = g_get_monotonic_time();
    std::vector<gint64> times;
    const auto timer = scheduler.scheduledTimer(0.01, [&] {
        times.push_back(g_get_monotonic_time() - before);
        if (times.size() == 1) g_usleep(3 * interval);
    });
    iterateUntil([&] { return times.size() == 4; });
    timer->invalidate();
    EXPECT_GE(times[0], interval);
    EXPECT_GE(times[1], 5 * interval) << "the deadlines that passed during the first block are skipped";
    EXPECT_GE(times[2], 6 * interval);
    EXPECT_GE(times[3], 7 * interval);
}

TEST(GLibTimerScheduler, IntervalsThatAreNoneTickOnceASecond) {
    constexpr double nan = std::numeric_limits<double>::quiet_NaN();
    for (const double interval : {0.0, -0.0, -5.0, -1e300, nan}) {
        SCOPED_TRACE(interval);
        const auto timer = GLibTimerScheduler().scheduledTimer(interval, [] {});
        const int milliseconds = timeUntilNextTick();
        EXPECT_GT(milliseconds, 0);
        EXPECT_LE(milliseconds, 1001);
        timer->invalidate();
    }
}

TEST(GLibTimerScheduler, HugeIntervalsNeverTick) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    for (const double interval : {9.3e12, 1e300, infinity}) {
        SCOPED_TRACE(interval);
        const auto timer = GLibTimerScheduler().scheduledTimer(interval, [] {});
        EXPECT_EQ(timeUntilNextTick(), -1);
        timer->invalidate();
    }
    const auto centuries = GLibTimerScheduler().scheduledTimer(9e9, [] {});
    EXPECT_EQ(timeUntilNextTick(), G_MAXINT);
    centuries->invalidate();
}

TEST(GLibTimerScheduler, TinyIntervalsTickAtMostOnceAMillisecond) {
    GLibTimerScheduler scheduler;
    int ticks = 0;
    const gint64 start = g_get_monotonic_time();
    const auto timer = scheduler.scheduledTimer(1e-12, [&] { ++ticks; });
    iterateUntil([&] { return ticks == 20; });
    EXPECT_GE(g_get_monotonic_time() - start, 20'000);
    timer->invalidate();
}

TEST(GLibTimerScheduler, TicksOnTheThreadsOwnContext) {
    int ticks = 0;
    std::thread::id tickThread;
    std::jthread worker([&] {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        const auto timer = GLibTimerScheduler().scheduledTimer(0.001, [&] {
            tickThread = std::this_thread::get_id();
            ++ticks;
        });
        iterateUntil([&] { return ticks == 2; }, context);
        timer->invalidate();
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    });
    const auto id = worker.get_id();
    worker.join();
    EXPECT_EQ(tickThread, id);
}

TEST(GLibTimerScheduler, TicksOnTheMainLoopForAThreadWithoutALoop) {
    int ticks = 0;
    std::thread::id tickThread;
    std::shared_ptr<Timer> timer;
    std::jthread([&] {
        timer = GLibTimerScheduler().scheduledTimer(0.001, [&] {
            tickThread = std::this_thread::get_id();
            ++ticks;
        });
    }).join();
    iterateUntil([&] { return ticks == 2; });
    EXPECT_EQ(tickThread, std::this_thread::get_id());
    timer->invalidate();
}

TEST(GLibTimerSchedulerDeathTest, ThrowingBlockTerminates) {
    const auto timer = GLibTimerScheduler().scheduledTimer(0.001, [] { throw std::runtime_error("a block's own"); });
    EXPECT_DEATH(iterateUntil([] { return false; }), "a block's own");
    timer->invalidate();
}

}  // namespace
}  // namespace tarvex::platform
