#include "platform/linux/sensor/iio_hid_event_system.h"

#include <gmock/gmock.h>

#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include "platform/linux/loop/glib_run_loop.h"
#include "platform/linux/sensor/iio_hid_service.h"
#include "platform/linux/sensor/sensor_tree.h"
#include "testing/manual_run_loop.h"

namespace tarvex::platform {
namespace {

using namespace std::chrono_literals;
using test::SensorTree;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

constexpr HidMatching ambientLight = {0xFF00, 4};
constexpr std::int32_t shortestReportInterval = 100'000;

/// What a callback is told to do with each event.
struct Receiver {
    std::function<void(HidServiceClient*, HidEvent&)> onEvent;
    static void receive(void* target, void* refcon, HidServiceClient* sender, HidEvent* event) {
        EXPECT_EQ(refcon, nullptr);
        static_cast<Receiver*>(target)->onEvent(sender, *event);
    }
};

std::vector<std::shared_ptr<HidServiceClient>> shortenIntervals(HidEventSystemClient& client) {
    auto services = client.copyServices();
    for (const auto& service : services)
        EXPECT_TRUE(service->setProperty("ReportInterval", shortestReportInterval));
    return services;
}

TEST(IioHidEventSystem, SeesTheLightSensorsInTheOrderOfTheirNumbers) {
    SensorTree tree;
    tree.plug(10, {{"in_illuminance_input", "10\n"}});
    tree.plug(9, {{"in_illuminance_input", "9\n"}});
    tree.plug(1, {{"in_accel_x_raw", "1\n"}});
    std::filesystem::create_directory_symlink(tree.device(9), tree.root() / "trigger0");
    std::filesystem::create_symlink(tree.device(3), tree.device(3));
    std::filesystem::create_directory_symlink(tree.device(10), tree.device(2));  // as the kernel's tree has them
    std::ofstream(tree.device(4)) << "a file";

    const auto client = IioHidEventSystem(tree.root()).createClient();
    client->setMatching(ambientLight);
    std::vector<std::string> names;
    for (const auto& service : client->copyServices())
        names.push_back(static_cast<IioHidService&>(*service).directory().filename());
    EXPECT_THAT(names, ElementsAre("iio:device2", "iio:device9", "iio:device10"));

    client->setMatching({0xFF00, 5});
    EXPECT_THAT(client->copyServices(), IsEmpty());
    client->setMatching({1, 4});
    EXPECT_THAT(client->copyServices(), IsEmpty());
}

TEST(IioHidEventSystem, WithoutAnySensorAClientStartsAndStopsQuietly) {
    tarvex::testing::ManualRunLoop loop;
    SensorTree tree;
    for (const auto& root : {tree.root(), tree.root() / "missing"}) {
        const auto client = IioHidEventSystem(root).createClient();
        client->setMatching(ambientLight);
        EXPECT_THAT(client->copyServices(), IsEmpty());
        client->scheduleWithRunLoop(loop);
        client->registerEventCallback(Receiver::receive, nullptr, nullptr);
        client->unregisterEventCallback();
        client->unscheduleFromRunLoop(loop);
    }
    EXPECT_EQ(loop.pendingCount(), 0U);
}

TEST(IioHidService, LimitsTheReportIntervalAndKnowsNoOtherProperty) {
    IioHidService service("anywhere");
    EXPECT_EQ(service.reportInterval(), 1s) << "never set";
    struct Case {
        std::int32_t value;
        std::chrono::microseconds expected;
    };
    for (const Case& c : {Case{5'000'000, 5s}, Case{INT32_MAX, 2147483647us}, Case{100'000, 100ms}, Case{99'999, 100ms},
                          Case{1, 100ms}, Case{0, 1s}, Case{-1, 1s}, Case{INT32_MIN, 1s}}) {
        EXPECT_TRUE(service.setProperty("ReportInterval", c.value));
        EXPECT_EQ(service.reportInterval(), c.expected) << c.value;
    }
    EXPECT_FALSE(service.setProperty("BatchInterval", 7));
    EXPECT_EQ(service.reportInterval(), 1s);
}

TEST(IioHidEventSystem, DeliversAReadingAsAnEventOnRegistrationAndThenOncePerInterval) {
    SensorTree tree;
    tree.plug(0, {{"in_illuminance_input", "4294967297\n"},
                  {"in_intensity_red_raw", "1\n"},
                  {"in_intensity_green_raw", "2.5\n"},
                  {"in_intensity_blue_raw", "3\n"},
                  {"in_intensity_clear_raw", "4\n"}});
    GLibRunLoop loop;
    const auto client = IioHidEventSystem(tree.root()).createClient();
    client->setMatching(ambientLight);
    const auto services = shortenIntervals(*client);
    std::vector<std::vector<double>> events;
    Receiver receiver{[&](HidServiceClient* sender, HidEvent& event) {
        EXPECT_EQ(sender, services.front().get());
        EXPECT_EQ(event.type(), 12U);
        events.push_back({static_cast<double>(event.integerValue(0xC0000)), event.floatValue(0xC0001),
                          event.floatValue(0xC0002), event.floatValue(0xC0003), event.floatValue(0xC0004)});
        EXPECT_EQ(event.floatValue(0xC0005), 0);
        EXPECT_EQ(event.integerValue(0xB0000), 0);
        tree.set(0, "in_illuminance_input", "7\n");
        if (events.size() == 3) loop.stop();
    }};
    client->scheduleWithRunLoop(loop);
    client->registerEventCallback(Receiver::receive, &receiver, nullptr);
    EXPECT_THAT(events, IsEmpty()) << "delivered inline";
    loop.run();
    EXPECT_THAT(events, ElementsAre(ElementsAre(4294967297.0, 1, 2.5, 3, 4), ElementsAre(7, 1, 2.5, 3, 4),
                                    ElementsAre(7, 1, 2.5, 3, 4)));
}

TEST(IioHidEventSystem, DeliversTheEventsOfEverySensorEachWithItsSender) {
    SensorTree tree;
    tree.plug(0, {{"in_illuminance_input", "1\n"}});
    tree.plug(1, {{"in_illuminance_input", "2\n"}});
    tree.plug(2, {{"in_illuminance_input", "broken\n"}});
    GLibRunLoop loop;
    const auto client = IioHidEventSystem(tree.root()).createClient();
    client->setMatching(ambientLight);
    const auto services = client->copyServices();
    std::vector<std::pair<HidServiceClient*, std::intptr_t>> events;
    Receiver receiver{[&](HidServiceClient* sender, HidEvent& event) {
        events.emplace_back(sender, event.integerValue(ambientLightLevelField));
        if (events.size() == 2) loop.stop();
    }};
    client->registerEventCallback(Receiver::receive, &receiver, nullptr);
    client->scheduleWithRunLoop(loop);
    loop.run();
    EXPECT_THAT(events, UnorderedElementsAre(std::pair(services[0].get(), 1), std::pair(services[1].get(), 2)));
}

TEST(IioHidEventSystem, NoEventBeginsAfterUnregisteringUnschedulingOrReleasing) {
    using Client = std::unique_ptr<HidEventSystemClient>;
    using End = void (*)(Client&, RunLoop&);
    for (const End end : {End([](Client& client, RunLoop&) { client->unregisterEventCallback(); }),
                          End([](Client& client, RunLoop& loop) { client->unscheduleFromRunLoop(loop); }),
                          End([](Client& client, RunLoop&) { client->setMatching({}); }),
                          End([](Client& client, RunLoop&) { client.reset(); })}) {
        SensorTree tree;
        tree.plug(0, {{"in_illuminance_input", "1\n"}});
        tarvex::testing::ManualRunLoop loop;
        auto client = IioHidEventSystem(tree.root()).createClient();
        client->setMatching(ambientLight);
        int events = 0;
        Receiver receiver{[&](HidServiceClient*, HidEvent&) { ++events; }};
        client->scheduleWithRunLoop(loop);
        client->registerEventCallback(Receiver::receive, &receiver, nullptr);
        loop.waitForPending();
        end(client, loop);
        loop.runPending();
        EXPECT_EQ(events, 0);
    }
}

TEST(IioHidEventSystem, TheCallbackMayEndItsClientAndStartAnother) {
    SensorTree tree;
    tree.plug(0, {{"in_illuminance_input", "1\n"}});
    GLibRunLoop loop;
    IioHidEventSystem system(tree.root());
    std::unique_ptr<HidEventSystemClient> client;
    int events = 0;
    Receiver receiver;
    const auto start = [&] {
        client = system.createClient();
        client->setMatching(ambientLight);
        client->scheduleWithRunLoop(loop);
        client->registerEventCallback(Receiver::receive, &receiver, nullptr);
    };
    receiver.onEvent = [&](HidServiceClient*, HidEvent&) {
        if (++events == 3) loop.stop();
        start();
    };
    start();
    loop.run();
    client.reset();
    EXPECT_EQ(events, 3);
}

TEST(IioHidEventSystem, ASensorThatGoesAwayIsSilentAndReportsAgainWhenItComesBack) {
    SensorTree tree;
    tree.plug(0, {{"in_illuminance_input", "1\n"}});
    tree.plug(1, {{"in_intensity_both_raw", "1\n"}});
    GLibRunLoop loop;
    const auto client = IioHidEventSystem(tree.root()).createClient();
    client->setMatching(ambientLight);
    const auto services = shortenIntervals(*client);
    std::vector<std::intptr_t> levels;
    int othersEvents = 0;
    Receiver receiver{[&](HidServiceClient* sender, HidEvent& event) {
        if (sender != services[0].get()) {
            // Two intervals of the other sensor, in which this one is away.
            if (++othersEvents == 3) tree.plug(0, {{"in_illuminance_input", "3\n"}});
            return;
        }
        levels.push_back(event.integerValue(ambientLightLevelField));
        if (levels.size() == 1) {
            tree.unplug(0);
            othersEvents = 0;
        } else {
            loop.stop();
        }
    }};
    client->scheduleWithRunLoop(loop);
    client->registerEventCallback(Receiver::receive, &receiver, nullptr);
    loop.run();
    EXPECT_THAT(levels, ElementsAre(1, 3));
    EXPECT_GE(othersEvents, 3);
}

/// The threads of this process that read sensors.
int sensorThreadCount() {
    int count = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        count += name == "tarvex-light" ? 1 : 0;
    }
    return count;
}

TEST(IioHidEventSystem, ThreadsRunOnlyWhileEventsAreDelivered) {
    SensorTree tree;
    tree.plug(0, {{"in_illuminance_input", "1\n"}});
    tree.plug(1, {{"in_illuminance_input", "1\n"}});
    tarvex::testing::ManualRunLoop loop;
    const auto client = IioHidEventSystem(tree.root()).createClient();
    client->setMatching(ambientLight);
    Receiver receiver{[](HidServiceClient*, HidEvent&) {}};
    client->scheduleWithRunLoop(loop);
    EXPECT_EQ(sensorThreadCount(), 0);
    client->registerEventCallback(Receiver::receive, &receiver, nullptr);
    EXPECT_EQ(sensorThreadCount(), 2);
    client->unregisterEventCallback();
    while (sensorThreadCount() != 0)
        std::this_thread::yield();
}

}  // namespace
}  // namespace tarvex::platform
