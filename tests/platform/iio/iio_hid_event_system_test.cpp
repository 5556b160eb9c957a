#include "platform/iio/iio_hid_event_system.h"

#include "platform/glib/glib_run_loop.h"
#include "platform/iio/sensor_tree.h"
#include "prelude.h"
#include "sleeping_thread.h"
#include "tarvex/testing/manual_run_loop.h"

namespace tarvex::platform {
namespace {

constexpr HidMatching ambientLight = {0xFF00, 4};

class IioHidEventSystemTest : public ::testing::Test {
protected:
    void connect() {
        client = system.createClient();
        client->setMatching(ambientLight);
        services = client->copyServices();
        for (const auto& service : services)
            EXPECT_TRUE(service->setProperty("ReportInterval", 100'000));  // the shortest
    }

    void start(RunLoop& runLoop) {
        client->scheduleWithRunLoop(runLoop);
        client->registerEventCallback(&IioHidEventSystemTest::receive, this, nullptr);
    }

    static void receive(void* target, void* refcon, HidServiceClient* sender, HidEvent* event) {
        EXPECT_EQ(refcon, nullptr);
        auto& self = *static_cast<IioHidEventSystemTest*>(target);
        ++self.eventCount;
        if (self.onEvent) self.onEvent(sender, *event);
    }

    test::SensorTree tree;
    IioHidEventSystem system{tree.root()};
    GLibRunLoop loop;
    testing::ManualRunLoop manualLoop;
    std::unique_ptr<HidEventSystemClient> client;
    std::vector<std::shared_ptr<HidServiceClient>> services;
    std::function<void(HidServiceClient*, HidEvent&)> onEvent;
    int eventCount = 0;
};

TEST_F(IioHidEventSystemTest, SeesTheLightSensorsInTheOrderOfTheirNumbers) {
    tree.plug(10, "in_illuminance_input=10");
    tree.plug(9, "in_illuminance_input=9");
    tree.plug(1, "in_accel_x_raw=1 in_accel_scale=1 name=bma");
    tree.plug(5, "in_illuminance_scale=1 in_intensity_scale=1 in_intensity_uv_raw=1");
    std::filesystem::create_directory_symlink(tree.device(9), tree.root() / "trigger0");
    std::filesystem::create_symlink(tree.device(3), tree.device(3));
    std::filesystem::create_directory_symlink(tree.device(10), tree.device(2));  // as the kernel's tree has them
    writeFile(tree.device(4), "a file");

    std::filesystem::current_path(tree.root());
    system = IioHidEventSystem(".");  // kept when the process goes elsewhere
    std::filesystem::current_path("/");
    connect();
    std::vector<std::string> names;
    for (const auto& service : services)
        names.push_back(static_cast<IioHidService&>(*service).directory().filename());
    EXPECT_THAT(names, ElementsAre("iio:device2", "iio:device9", "iio:device10"));
    for (const HidMatching& other : {HidMatching{0xFF00, 5}, HidMatching{1, 4}}) {
        client->setMatching(other);
        EXPECT_THAT(client->copyServices(), IsEmpty());
    }
    tree.plug(11, "in_illuminance_input=11");  // for the next client
    client->setMatching(ambientLight);
    EXPECT_EQ(client->copyServices(), services);
}

TEST(IioHidService, LimitsTheReportIntervalAndKnowsNoOtherProperty) {
    IioHidService service("anywhere");
    EXPECT_EQ(service.reportInterval(), 1s) << "never set";
    using Case = std::pair<std::int32_t, std::chrono::microseconds>;
    for (const auto& [value, expected] :
         {Case{5'000'000, 5s}, Case{INT32_MAX, 2147483647us}, Case{100'000, 100ms}, Case{99'999, 100ms}, Case{1, 100ms},
          Case{0, 1s}, Case{-1, 1s}, Case{INT32_MIN, 1s}}) {
        EXPECT_TRUE(service.setProperty("ReportInterval", value));
        EXPECT_EQ(service.reportInterval(), expected) << value;
    }
    EXPECT_FALSE(service.setProperty("BatchInterval", 7'000'000));
    EXPECT_EQ(service.reportInterval(), 1s);
}

TEST_F(IioHidEventSystemTest, DeliversAReadingAsAnEventOnRegistrationAndThenOncePerInterval) {
    tree.plug(0,
              "in_illuminance_input=4294967297 in_intensity_red_raw=1 in_intensity_green_raw=2.5"
              " in_intensity_blue_raw=3 in_intensity_clear_raw=4");
    connect();
    std::vector<std::vector<double>> events;
    onEvent = [&](HidServiceClient* sender, HidEvent& event) {
        EXPECT_EQ(sender, services.front().get());
        EXPECT_EQ(event.type(), 12U);
        events.push_back({static_cast<double>(event.integerValue(0xC0000)), event.floatValue(0xC0001),
                          event.floatValue(0xC0002), event.floatValue(0xC0003), event.floatValue(0xC0004)});
        EXPECT_EQ(event.floatValue(0xC0005), 0);
        EXPECT_EQ(event.integerValue(0xB0000), 0);
        tree.set(0, "in_illuminance_input", "7\n");
        if (events.size() == 3) loop.stop();
    };
    start(loop);
    EXPECT_THAT(events, IsEmpty()) << "delivered inline";
    client->unscheduleFromRunLoop(manualLoop);  // another one
    loop.run();
    EXPECT_THAT(events, ElementsAre(ElementsAre(4294967297.0, 1, 2.5, 3, 4), ElementsAre(7, 1, 2.5, 3, 4),
                                    ElementsAre(7, 1, 2.5, 3, 4)));
}

TEST_F(IioHidEventSystemTest, NoEventBeginsAfterUnregisteringUnschedulingOrReleasing) {
    tree.plug(0, "in_illuminance_input=1");
    for (const auto& end : std::vector<std::function<void()>>{
             [&] { client->unregisterEventCallback(); }, [&] { client->unscheduleFromRunLoop(manualLoop); },
             [&] { client->setMatching({}); }, [&] { client.reset(); }}) {
        connect();
        start(manualLoop);
        manualLoop.waitForPending();
        end();
        manualLoop.runPending();
        EXPECT_EQ(eventCount, 0);
    }
}

TEST_F(IioHidEventSystemTest, TheCallbackMayEndItsClientAndStartAnother) {
    tree.plug(0, "in_illuminance_input=1");
    std::atomic<bool> ended = false;
    std::optional<test::SleepingThread> other;
    onEvent = [&](auto*, auto&) {
        if (eventCount < 3) {
            connect();
            return start(loop);
        }
        other.emplace([&] {
            client->unregisterEventCallback();
            ended = true;
        });
        EXPECT_FALSE(ended) << "another thread's end waits";
        loop.stop();
    };
    connect();
    start(loop);
    loop.run();
    other.reset();
    EXPECT_EQ(eventCount, 3);
}

TEST_F(IioHidEventSystemTest, ASensorThatGoesAwayIsSilentAndReportsAgainWhenItComesBack) {
    tree.plug(0, "in_illuminance_input=1");
    tree.plug(1, "in_intensity_both_raw=1");
    connect();
    std::vector<std::intptr_t> levels;
    int othersEvents = 0;
    onEvent = [&](HidServiceClient* sender, HidEvent& event) {
        if (sender != services[0].get()) {
            // Two intervals of the other sensor, in which this one is away.
            if (++othersEvents == 3) tree.plug(0, "in_illuminance_input=3");
            return;
        }
        levels.push_back(event.integerValue(ambientLightLevelField));
        if (levels.size() == 2) return loop.stop();
        tree.unplug(0);
        othersEvents = 0;
    };
    start(loop);
    loop.run();
    EXPECT_THAT(levels, ElementsAre(1, 3));
    EXPECT_GE(othersEvents, 3);
}

}  // namespace
}  // namespace tarvex::platform
