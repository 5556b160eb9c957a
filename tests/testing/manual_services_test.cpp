#include <gmock/gmock.h>

#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "testing/manual_dispatch_queues.h"
#include "testing/manual_run_loop.h"
#include "testing/manual_timer_scheduler.h"
#include "testing/scripted_light_sensor.h"

namespace tarvex::testing {
namespace {

using namespace platform;
using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::SizeIs;

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
    const auto held = std::make_shared<int>(0);
    first = scheduler.scheduledTimer(1, [&, held] {
        first->invalidate();
        order += 'a';
        static_cast<void>(scheduler.scheduledTimer(2, [&] { order += 'b'; }));
    });
    scheduler.advance(5);
    EXPECT_EQ(order, "abb");
    EXPECT_THAT(scheduler.intervals(), ElementsAre(2));
    EXPECT_EQ(held.use_count(), 1);
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

TEST(ManualRunLoop, RunsBlocksOfOtherThreadsUntilItIsStopped) {
    ManualRunLoop loop;
    int sum = 0;
    std::jthread other([&] {
        loop.perform([&] { sum += 1; });
        loop.perform([&] {
            loop.perform([&] { sum += 100; });
            loop.stop();
        });
    });
    loop.run();
    EXPECT_EQ(sum, 1);
    EXPECT_EQ(loop.runPending(), 1U);
    EXPECT_EQ(sum, 101);
}

TEST(ScriptedHidEventSystem, DeliversToClientsThatAreScheduledAndRegistered) {
    ManualRunLoop loop;
    ScriptedHidEventSystem system(2);
    auto client = system.createClient();
    client->setMatching({0xFF00, 4});
    const auto services = client->copyServices();
    EXPECT_TRUE(services.at(1)->setProperty("ReportInterval", 5));
    EXPECT_FALSE(services.at(0)->setProperty("Colour", 1));
    EXPECT_THAT(system.propertiesSet(), ElementsAre(ScriptedHidEventSystem::PropertySet{1, "ReportInterval", 5},
                                                    ScriptedHidEventSystem::PropertySet{0, "Colour", 1}));

    struct Last {
        HidServiceClient* sender = nullptr;
        HidEventType type = 0;
        std::intptr_t level = 0;
        double channel3 = 0;
        static void receive(void* target, void*, HidServiceClient* sender, HidEvent* event) {
            *static_cast<Last*>(target) = {sender, event->type(), event->integerValue(ambientLightLevelField),
                                           event->floatValue(ambientLightChannel0Field + 3)};
        }
    } last;
    client->registerEventCallback(Last::receive, &last, nullptr);
    system.emit(1, 2, 3, 4, 5);
    EXPECT_EQ(last.type, 0U) << "not scheduled";
    client->scheduleWithRunLoop(loop);
    EXPECT_EQ(system.deliveringCount(), 1U);
    system.emit((1L << 62) + 1, 2, 3, 4, 0.1);
    EXPECT_EQ(last.level, (1L << 62) + 1);
    EXPECT_EQ(last.channel3, 0.1);
    system.emit(7, {{7 << 16, 1.5}}, 1);
    EXPECT_EQ(last.type, 7U);
    EXPECT_EQ(last.sender, services.at(1).get());
    client->unregisterEventCallback();
    EXPECT_EQ(system.deliveringCount(), 0U);
    client.reset();
    EXPECT_EQ(system.clientCount(), 0U);
}

}  // namespace
}  // namespace tarvex::testing
