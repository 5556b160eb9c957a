// What the library's own tests, which use all doubles, do not show of them.

#include "prelude.h"
#include "tarvex/testing/manual_dispatch_queues.h"
#include "tarvex/testing/manual_timer_scheduler.h"

namespace tarvex::testing {
namespace {

using namespace platform;

TEST(ManualTimerScheduler, TicksInTheOrderOfTimesAndLosesNone) {
    ManualTimerScheduler scheduler;
    std::string order;
    const auto slow = scheduler.scheduledTimer(0.3, [&] { order += 's'; });
    const auto fast = scheduler.scheduledTimer(0.1, [&] { order += 'f'; });
    const auto never = scheduler.scheduledTimer(std::numeric_limits<double>::infinity(), [&] { order += 'n'; });
    const auto second = scheduler.scheduledTimer(-2, [&] { order += '1'; });
    for (int i = 0; i < 10; ++i)
        scheduler.advance(0.1);
    EXPECT_EQ(order, "ffsfffsfffsff1");
    EXPECT_THAT(scheduler.intervals(), SizeIs(4));
}

TEST(ManualTimerScheduler, ABlockMayInvalidateItsTimerAndScheduleAnother) {
    ManualTimerScheduler scheduler;
    std::string order;
    std::shared_ptr<Timer> first;
    first = scheduler.scheduledTimer(1, [&] {
        first->invalidate();
        order += 'a';
        std::ignore = scheduler.scheduledTimer(2, [&] { order += 'b'; });
    });
    scheduler.advance(5);
    EXPECT_EQ(order, "abb");
    EXPECT_THAT(scheduler.intervals(), ElementsAre(2));
}

TEST(ManualDispatchQueues, RunsWhatIsDueInTheOrderOfTimes) {
    ManualDispatchQueues queues;
    std::string order;
    queues.backgroundAfter(3s, [&] { order += 'c'; });
    queues.backgroundAfter(1s, [&] {
        order += 'a';
        queues.backgroundAfter(1s, [&] { order += 'b'; });
        queues.mainAsync([&] { order += 'm'; });
    });
    queues.advance(2999ms);
    EXPECT_EQ(order, "ab");
    EXPECT_EQ(queues.delayedCount(), 1U);
    EXPECT_EQ(queues.runMain(), 1U);
    queues.advance(1ms);
    EXPECT_EQ(order, "abmc");
}

}  // namespace
}  // namespace tarvex::testing
