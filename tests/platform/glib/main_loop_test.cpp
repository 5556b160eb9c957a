// The main run loop, timers on it, the queues for later work, and the log.

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <csignal>

#include "platform/glib/dispatch_queues.h"
#include "platform/glib/glib_run_loop.h"
#include "platform/glib/glib_timer_scheduler.h"
#include "platform/shared/deadline_grid.h"
#include "prelude.h"
#include "recorded_log.h"
#include "tarvex/platform/diagnostics.h"
#include "tarvex/testing/manual_run_loop.h"

namespace tarvex::platform {
namespace {

using std::chrono::steady_clock;

class GLibRunLoopTest : public ::testing::Test {
protected:
    void record(int n) {
        order.push_back(n);
        EXPECT_EQ(std::this_thread::get_id(), testThread);
    }
    void perform(int n, bool stops) {
        loop->perform([this, n, stops] {
            if (stops) loop->stop();
            record(n);
        });
    }

    std::unique_ptr<GLibRunLoop> loop = std::make_unique<GLibRunLoop>();
    std::vector<int> order;
    const std::thread::id testThread = std::this_thread::get_id();
};

TEST_F(GLibRunLoopTest, RunsBlocksLaterInOrderAlsoInANestedRunThatEndsAlone) {
    loop->perform([&] {
        record(1);
        loop->run();
        perform(5, true);
        record(3);
    });
    perform(2, true);
    perform(4, false);
    EXPECT_THAT(order, IsEmpty());
    loop->run();
    EXPECT_THAT(order, ElementsAre(1, 2, 3, 4, 5));
}

TEST_F(GLibRunLoopTest, TakesEveryBlockOfOtherThreadsInTheirOrder) {
    constexpr int blockCount = 500;
    std::array<std::vector<int>, 3> received;
    int left = blockCount * static_cast<int>(received.size());
    std::vector<std::jthread> threads;
    const auto blocks = std::views::iota(0, blockCount);
    for (auto& numbers : received)
        threads.emplace_back([&] {
            for (const int i : blocks)
                loop->perform([&, i] {
                    numbers.push_back(i);
                    if (--left == 0) loop->stop();
                });
        });
    loop->run();
    for (const auto& numbers : received)
        EXPECT_TRUE(std::ranges::equal(numbers, blocks));
}

TEST_F(GLibRunLoopTest, AStopBeforeARunEndsThatRunAndNoOther) {
    loop->stop();
    perform(1, true);
    loop->run();
    EXPECT_THAT(order, IsEmpty());
    loop->run();
    EXPECT_THAT(order, ElementsAre(1));
}

TEST_F(GLibRunLoopTest, RunsBesideAHostThatIteratesTheContextAndCausesNoWakeUpsWhileIdle) {
    perform(1, false);
    for (int i = 0; i < 10 && order.empty(); ++i)
        g_main_context_iteration(nullptr, FALSE);
    EXPECT_THAT(order, ElementsAre(1));
    EXPECT_FALSE(g_main_context_pending(nullptr));

    const guint busy =
        g_idle_add_full(G_PRIORITY_DEFAULT, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
    perform(2, true);
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

void iterateUntil(const std::function<bool()>& done, GMainContext* context = nullptr) {
    while (!done())
        g_main_context_iteration(context, TRUE);
}

/// The time until the default context's next source is due, in milliseconds; -1 when there is none.
int timeUntilNextTick() {
    GMainContext* context = g_main_context_default();
    EXPECT_TRUE(g_main_context_acquire(context));
    g_main_context_prepare(context, nullptr);
    int timeout = -1;
    g_main_context_query(context, G_MAXINT, &timeout, nullptr, 0);
    g_main_context_release(context);
    return timeout;
}

class GLibTimerSchedulerTest : public ::testing::Test {
protected:
    GLibTimerScheduler scheduler;
    std::shared_ptr<Timer> timer;
    int ticks = 0;
    std::thread::id thread;
    const std::function<void()> tick = [this] {
        ++ticks;
        thread = std::this_thread::get_id();
    };
};

TEST_F(GLibTimerSchedulerTest, InvalidateEndsTheTicksAndReleasesWhatTheBlockHolds) {
    const auto held = std::make_shared<int>(0);
    timer = scheduler.scheduledTimer(0.001, [this, held] {
        timer->invalidate();
        timer.reset();  // the last reference
        ++*held;        // still alive: the block ends first
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
    iterateUntil([&] { return times.size() == 3; });
    timer->invalidate();
    EXPECT_GE(times[0], interval);
    EXPECT_GE(times[1], 5 * interval) << "the deadlines that passed during the first block are skipped";
    EXPECT_GE(times[2], 6 * interval);
}

TEST_F(GLibTimerSchedulerTest, LimitsTheInterval) {
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
    const gint64 start = g_get_monotonic_time();
    timer = scheduler.scheduledTimer(1e-12, tick);
    iterateUntil([&] { return ticks == 20; });
    EXPECT_GE(g_get_monotonic_time() - start, 20'000) << "one tick a millisecond at most";
    timer->invalidate();
}

TEST_F(GLibTimerSchedulerTest, TicksOnTheThreadsOwnContext) {
    std::jthread worker([&] {
        GMainContext* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        EXPECT_TRUE(scheduler.scheduledTimer(0.001, tick));  // goes on without its reference
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
        const auto block = [&, held] {
            tick();
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

TEST(MainLoopDeathTest, ABlockThatThrowsEndsTheProcess) {
    const auto fault = [] { throw std::runtime_error("a block's own"); };
    {
        GLibRunLoop loop;
        loop.perform(fault);
        EXPECT_DEATH(loop.run(), "a block's own");
    }
    const auto timer = GLibTimerScheduler().scheduledTimer(0.001, fault);
    EXPECT_DEATH(iterateUntil([] { return false; }), "a block's own");
    timer->invalidate();
}

class DispatchQueuesTest : public ::testing::Test {
protected:
    testing::ManualRunLoop loop;
    std::unique_ptr<LinuxDispatchQueues> queues = std::make_unique<LinuxDispatchQueues>(loop);
    std::binary_semaphore ready{0};
};

TEST_F(DispatchQueuesTest, DelayedBlocksRunInTheOrderOfTheirDeadlinesAndNotBefore) {
    std::vector<int> order;
    const auto record = [&](int n) { return [&order, n] { order.push_back(n); }; };
    std::promise<steady_clock::time_point> end;
    const auto start = steady_clock::now();
    queues->backgroundAfter(0ms, [&] { ready.acquire(); });
    queues->backgroundAfter(500ms, [&] { end.set_value(steady_clock::now()); });
    queues->backgroundAfter(0ms, record(2));
    queues->backgroundAfter(1ms, record(3));
    queues->backgroundAfter(std::chrono::nanoseconds::min(), record(1));
    ready.release();
    EXPECT_GE(end.get_future().get() - start, 500ms);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST_F(DispatchQueuesTest, DestructionDropsWaitingBlocksAndWaitsForTheOneThatRuns) {
    const auto held = std::make_shared<int>(0);
    queues->backgroundAfter(std::chrono::nanoseconds::max(), [held] { *held = 1; });
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

TEST_F(DispatchQueuesTest, WarnOnceOfTimersOnAMainLoopThatDoesNotRun) {
    const test::RecordedLog log;
    GLibTimerScheduler watched([&] { warnUnlessMainLoopRuns(*queues, 1ms); });
    for (int i = 0; i < 2; ++i)
        watched.scheduledTimer(1, [] {})->invalidate();
    const auto wait = [&](std::chrono::milliseconds time) {
        queues->backgroundAfter(time, [&] { ready.release(); });
        ready.acquire();
    };
    wait(10ms);
    warnUnlessMainLoopRuns(*queues, 200ms);
    EXPECT_EQ(loop.runPending(), 2U);
    wait(200ms);
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("main loop has not run")));
}

TEST(Diagnostics, AHostReceivesTheDomainsLinesWithTheirLevelsAndEachOnceWarningOnce) {
    const test::RecordedLog log;
    logWarning("100 %s");
    logDebug("for developers");
    WarningOnce warning;
    for (const char* text : {"the first reason", "the second reason"})
        warning.log(text);
    EXPECT_THAT(log.lines(), ElementsAre("100 %s", "the first reason"));
    EXPECT_THAT(log.lines(G_LOG_LEVEL_DEBUG), ElementsAre("for developers"));
}

TEST(DiagnosticsDeathTest, WritesToStandardErrorSurvivesEveryStateOfItAndLeavesNoSignalBehind) {
    const auto writeTo = [](int descriptor) {
        dup2(descriptor, STDERR_FILENO);
        close(descriptor);
        std::signal(SIGPIPE, SIG_DFL);
        logWarning("a warning");
        writeErrorLine("a fixed line");
        sigset_t pending;
        sigpending(&pending);
        _exit(sigismember(&pending, SIGPIPE));
    };
    EXPECT_EXIT((logWarning("a warning"), _exit(0)), ::testing::ExitedWithCode(0), "Tarvex-WARNING.*: a warning");
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    close(ends[0]);
    EXPECT_EXIT(writeTo(ends[1]), ::testing::ExitedWithCode(0), "") << "a reader that went away";
    EXPECT_EXIT(writeTo(open("/dev/full", O_WRONLY)), ::testing::ExitedWithCode(0), "");
    EXPECT_EXIT((close(STDERR_FILENO), writeTo(-1)), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tarvex::platform
