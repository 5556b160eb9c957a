#include "platform/glib/glib_timer_scheduler.h"

#include <glib.h>

#include "platform/shared/deadline_grid.h"
#include "prelude.h"

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
    std::array<GPollFD, 8> descriptors{};
    g_main_context_query(context, G_MAXINT, &timeout, descriptors.data(), static_cast<int>(descriptors.size()));
    g_main_context_release(context);
    return timeout;
}

class GLibTimerSchedulerTest : public ::testing::Test {
protected:
    std::function<void()> tick() {
        return [this] {
            ++ticks;
            thread = std::this_thread::get_id();
        };
    }

    GLibTimerScheduler scheduler;
    std::shared_ptr<Timer> timer;
    int ticks = 0;
    std::thread::id thread;
};

TEST_F(GLibTimerSchedulerTest, InvalidateEndsTheTicksAndReleasesWhatTheBlockHolds) {
    const auto held = std::make_shared<int>(0);
    timer = scheduler.scheduledTimer(0.001, [this, held] {
        timer->invalidate();
        timer.reset();  // the last reference
        ++*held;        // what the block holds outlives its invalidation
    });
    iterateUntil([&] { return *held == 1; });
    EXPECT_EQ(held.use_count(), 1);

    timer = scheduler.scheduledTimer(1000, [held] {});
    timer->invalidate();
    timer->invalidate();
    g_main_context_iteration(nullptr, FALSE);
    EXPECT_EQ(held.use_count(), 1);
    EXPECT_EQ(timeUntilNextTick(), -1);
}

TEST(DeadlineGrid, NeitherDriftsNorCatchesUp) {
    using std::chrono::microseconds;
    constexpr microseconds interval(50);
    const auto at = [](std::int64_t microsecond) { return Instant(microseconds(microsecond)); };
    for (const auto& [now, expected] : std::map<std::int64_t, std::int64_t>{
             {1000, 1050}, {1001, 1050}, {1049, 1050}, {1050, 1100}, {1099, 1100}, {1234, 1250}})
        EXPECT_EQ(nextDeadline(at(1000), interval, at(now)), at(expected)) << now;
    EXPECT_EQ(nextDeadline(endOfTime - interval, interval, endOfTime - interval), endOfTime);
    EXPECT_EQ(nextDeadline(endOfTime - interval, interval, endOfTime), std::nullopt);
    EXPECT_EQ(nextDeadline(at(1000), microseconds::max(), at(2000)), std::nullopt);
}

TEST_F(GLibTimerSchedulerTest, NeverTicksBeforeItsDeadlinesAndSkipsWhatItMissed) {
    constexpr gint64 interval = 10'000;
    const gint64 before = g_get_monotonic_time();
    std::vector<gint64> times;
    timer = scheduler.scheduledTimer(0.01, [&] {
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

TEST_F(GLibTimerSchedulerTest, TakesIntervalsThatAreNoneForASecondAndHugeOnesForNever) {
    using Limits = std::numeric_limits<double>;
    const auto aSecond = ::testing::AllOf(::testing::Gt(0), ::testing::Le(1001));
    using Case = std::pair<double, ::testing::Matcher<int>>;
    for (const auto& [interval, expected] :
         {Case{0.0, aSecond}, Case{-0.0, aSecond}, Case{-5.0, aSecond}, Case{-1e300, aSecond},
          Case{Limits::quiet_NaN(), aSecond}, Case{9e9, G_MAXINT}, Case{9.3e12, -1}, Case{1e300, -1},
          Case{Limits::infinity(), -1}}) {
        timer = scheduler.scheduledTimer(interval, [] {});
        EXPECT_THAT(timeUntilNextTick(), expected) << interval;
        timer->invalidate();
        g_main_context_iteration(nullptr, FALSE);
    }
}

TEST_F(GLibTimerSchedulerTest, TinyIntervalsTickAtMostOnceAMillisecond) {
    const gint64 start = g_get_monotonic_time();
    timer = scheduler.scheduledTimer(1e-12, tick());
    iterateUntil([&] { return ticks == 20; });
    EXPECT_GE(g_get_monotonic_time() - start, 20'000);
    timer->invalidate();
}

TEST_F(GLibTimerSchedulerTest, TicksOnTheThreadsOwnContext) {
    std::jthread worker([&] {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        EXPECT_TRUE(scheduler.scheduledTimer(0.001, tick()));  // goes on without its reference
        iterateUntil([&] { return ticks == 2; }, context);
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    });
    const auto id = worker.get_id();
    worker.join();
    EXPECT_EQ(thread, id);
}

TEST_F(GLibTimerSchedulerTest, TicksAndEndsOnTheMainLoopForThreadsWithoutALoop) {
    const auto invalidate = [&] { std::jthread([&] { timer->invalidate(); }).join(); };
    const auto held = std::make_shared<int>(0);
    for (const bool duringATick : {false, true}) {
        ticks = 0;
        const auto block = [&, held, count = tick()] {
            count();
            if (duringATick) invalidate();
        };
        std::jthread([&] { timer = scheduler.scheduledTimer(0.001, block); }).join();
        iterateUntil([&] { return ticks > 0; });
        if (!duringATick) invalidate();
        EXPECT_EQ(held.use_count(), duringATick ? 2 : 3) << "the main loop alone releases the block";
        g_main_context_iteration(nullptr, FALSE);
        EXPECT_EQ(held.use_count(), 2);
        EXPECT_EQ(ticks, 1);
        EXPECT_EQ(thread, std::this_thread::get_id());
    }
}

using GLibTimerSchedulerDeathTest = GLibTimerSchedulerTest;

TEST_F(GLibTimerSchedulerDeathTest, ThrowingBlockTerminates) {
    timer = scheduler.scheduledTimer(0.001, [] { throw std::runtime_error("a block's own"); });
    EXPECT_DEATH(iterateUntil([] { return false; }), "a block's own");
    timer->invalidate();
}

}  // namespace
}  // namespace tarvex::platform
