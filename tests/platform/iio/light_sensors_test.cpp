// Light sensors of the kernel's tree, from the number in a file to the event of a client.

#include <sys/resource.h>
#include <sys/stat.h>

#include "platform/iio/iio_hid_event_system.h"
#include "platform/iio/iio_light_sensor.h"
#include "platform/iio/light_sensor_reporter.h"
#include "platform/iio/sensor_tree.h"
#include "platform/shared/deadline_grid.h"
#include "prelude.h"
#include "sleeping_thread.h"
#include "tarvex/testing/manual_run_loop.h"

namespace tarvex::platform {
namespace {

namespace fs = std::filesystem;

TEST(ParseSensorNumber, TakesThePlainNumbersOfTheKernelOnly) {
    using Case = std::pair<const char*, double>;
    for (const auto& [text, expected] : {Case{"0\n", 0.0}, Case{"123.456000\n", 123.456}, Case{"-0.500000\n", -0.5},
                                         Case{"250 \t\r\n", 250.0}, Case{"1e3\n", 1000.0}})
        EXPECT_EQ(parseSensorNumber(text), expected) << text;
    for (const auto& text :
         std::vector<std::string_view>{"1,5\n", "nan\n", "-nan(x)\n", "inf\n", "1e999\n", "", "\n", "12 dB\n",
                                       "1 2 3\n", "0x10\n", "-\n", std::string_view("1\0", 2)})
        EXPECT_EQ(parseSensorNumber(text), std::nullopt) << text;
}

struct IioLightSensorTest : ::testing::Test {
    test::SensorTree tree;
};

TEST_F(IioLightSensorTest, ReadsEveryDriverRightAndRefusesWhatDoesNotFit) {
    const auto read = [&](const std::string& attributes) {
        tree.unplug(0);
        tree.plug(0, attributes);
        EXPECT_TRUE(IioLightSensor::isLightSensor(tree.device(0)));
        return IioLightSensor(tree.device(0)).read();
    };
    using Case = std::pair<const char*, LightReading>;
    for (const auto& [attributes, expected] :
         {Case{"in_illuminance_input=321.5 in_intensity_red_raw=11 in_intensity_green_raw=22"
               " in_intensity_blue_raw=33 in_intensity_clear_raw=44",
               {322, {11, 22, 33, 44}}},  // opt4060
          Case{"in_intensity_clear_raw=400 in_intensity_red_raw=100 in_intensity_green_raw=200"
               " in_intensity_blue_raw=300 in_intensity_scale=16 scale=16 in_proximity_raw=7",
               {0, {100, 200, 300, 400}}},  // apds9960
          Case{"in_intensity_green_raw=20 in_intensity_red_raw=65535 in_intensity_blue_raw=30",
               {0, {65535, 20, 30, 0}}},  // isl29125, and with a fourth channel tcs3472, tcs3414, bh1745, veml6040
          Case{"in_illuminance_raw=9999 in_illuminance_input=57 in_illuminance_scale=0.5 in_intensity_both_raw=812",
               {57, {812, 0, 0, 0}}},  // veml6030
          Case{"in_illuminance_input=10 in_intensity_both_raw=500 in_intensity_ir_raw=90",
               {10, {500, 90, 0, 0}}},  // tsl2591
          Case{"in_illuminance_raw=250000 in_illuminance_scale=0.001 in_illuminance_offset=500",
               {251, {}}},  // hid-sensor-als: 250.5, to the nearest
          Case{"in_illuminance_raw=42", {42, {}}}, Case{"in_illuminance_input=-3.5", {-4, {}}},
          Case{"in_illuminance_input=0.49", {0, {}}}, Case{"in_illuminance_input=4294967297", {4294967297, {}}},
          Case{"in_illuminance_input=9223372036854774784", {9223372036854774784, {}}},
          Case{"in_illuminance_input=-9223372036854775808", {INT64_MIN, {}}},
          Case{"in_illuminance1_raw=7 in_illuminance0_raw=100 in_illuminance1_scale=9 in_illuminance_scale=2"
               " in_illuminance0_offset=-10 in_intensity0_both_raw=5 in_intensity1_ir_raw=6",
               {180, {5, 6, 0, 0}}},  // numbered, with a scale that is shared
          Case{"in_illuminance0_raw=100 in_illuminance0_scale=3 in_illuminance_scale=2", {300, {}}},
          Case{"in_illuminance10_input=10 in_illuminance9_input=9 in_intensity_raw=3", {9, {3, 0, 0, 0}}}})
        EXPECT_THAT(read(attributes), Optional(expected)) << attributes;
    for (const char* attributes :
         {"in_illuminance_input=9223372036854775807", "in_illuminance_input=-9223372036854777856",
          "in_illuminance_input=1e300", "in_illuminance_input=-1e300",
          "in_illuminance_raw=1e308 in_illuminance_scale=10",                                  // infinite
          "in_illuminance_raw=1e308 in_illuminance_offset=1e308 in_illuminance_scale=0",       // infinity times zero
          "in_illuminance_input=1 in_intensity_red_raw=1e39", "in_intensity_both_raw=-1e39"})  // beyond a 32-bit float
        EXPECT_EQ(read(attributes), std::nullopt) << attributes;
}

TEST_F(IioLightSensorTest, NeverBlocksOnAnUnreadableAttributeAndReadsAgainAfterwards) {
    writeFile(tree.root() / "garbage", "garbage\n");
    writeFile(tree.root() / "longer than any attribute", "1" + std::string(256, ' '));
    ASSERT_EQ(mkfifo((tree.root() / "FIFO without a writer").c_str(), 0600), 0);
    const auto good = Optional(LightReading{22, {3, 0, 0, 0}});
    tree.plug(0, "in_illuminance_raw=10 in_illuminance_scale=2 in_illuminance_offset=1 in_intensity_both_raw=3");
    for (const char* name :
         {"in_illuminance_raw", "in_illuminance_scale", "in_illuminance_offset", "in_intensity_both_raw"})
        // No page is mapped at the start of a process: a read there fails with EIO.
        for (const char* unreadable :
             {"../garbage", "../longer than any attribute", "../FIFO without a writer", "/proc/self/mem"}) {
            SCOPED_TRACE(std::string(name) + " is " + unreadable);
            const auto attribute = tree.device(0) / name;
            const std::string value = contentsOf(attribute);
            IioLightSensor sensor(tree.device(0));
            EXPECT_THAT(sensor.read(), good);
            fs::remove(attribute);
            fs::create_symlink(unreadable, attribute);
            EXPECT_EQ(sensor.read(), std::nullopt);
            tree.set(0, name, value);
            EXPECT_THAT(sensor.read(), good);
        }
}

TEST_F(IioLightSensorTest, FollowsAttributesThatAppearAndGoAndDevicesThatReplaceEachOther) {
    const auto gives = [](std::int64_t lux, double channel0) { return LightReading{lux, {channel0, 0, 0, 0}}; };
    // The attribute that goes, "." for the device; those that appear; the reading then.
    using Step = std::tuple<std::string, std::string, std::optional<LightReading>>;
    IioLightSensor sensor(tree.device(0));
    for (const auto& [gone, plugged, expected] :
         {Step(".", "", {}), Step("", "in_illuminance_raw=10 in_intensity_both_raw=3", gives(10, 3)),
          Step("", "in_illuminance_scale=2", gives(20, 3)), Step("", "in_illuminance_offset=5", gives(30, 3)),
          // An attribute that goes is missing, and neither 0 nor 1, until it or another one is there.
          Step("in_illuminance_scale", "", {}), Step("in_illuminance_offset", "", {}),
          Step("", "in_illuminance_scale=3", {}), Step("", "in_illuminance_offset=0", gives(30, 3)),
          Step("in_illuminance_raw", "", {}), Step("", "in_illuminance_input=7", gives(7, 3)),
          Step("in_intensity_both_raw", "", {}), Step("", "in_intensity_raw=4", gives(7, 4)),
          // Another device never had them.
          Step(".", "in_intensity_red_raw=7", gives(0, 7)), Step(".", "", {}),
          Step("", "in_intensity_both_raw=8", gives(0, 8))}) {
        SCOPED_TRACE("without " + gone + ", with " + plugged);
        if (gone == ".") tree.unplug(0);
        if (gone.starts_with("in_")) fs::remove(tree.device(0) / gone);
        if (!plugged.empty()) tree.plug(0, plugged);
        EXPECT_EQ(sensor.read(), expected);
        EXPECT_EQ(sensor.read(), expected) << "at the next look";
    }
}

TEST_F(IioLightSensorTest, AReadingIsOfOneDeviceAlsoWhileAnotherTakesItsPlace) {
    tree.plug(1, "in_illuminance_input=1 in_intensity_both_raw=1");
    tree.plug(2, "in_illuminance_raw=1 in_illuminance_scale=2 in_intensity_both_raw=2");
    std::counting_semaphore<> looks(0);
    const std::jthread other([&] {
        for (int i = 0; i < 500; ++i) {
            looks.acquire();
            fs::create_directory_symlink(tree.device(1 + i % 2), tree.root() / "fresh");
            fs::rename(tree.root() / "fresh", tree.device(0));
        }
    });
    IioLightSensor sensor(tree.device(0));
    const LightReading one{1, {1, 0, 0, 0}};
    const LightReading two{2, {2, 0, 0, 0}};
    for (int i = 0; i < 500; ++i) {
        looks.release();
        EXPECT_THAT(sensor.read(), AnyOf(one, two, std::nullopt)) << "none when it is replaced too often meanwhile";
    }
}

class LightSensorReporterTest : public ::testing::Test {
protected:
    // The reader's thread may look once more while its reporter is being destroyed: `read` owns what it uses.
    void report(LightSensorReporter::Read read, std::chrono::microseconds interval) {
        const auto keep = [this](const auto& reading) {
            levels.push_back(reading.lux);
            onReport();
        };
        reporter = std::make_unique<LightSensorReporter>(std::move(read), [=] { return interval; }, loop, keep);
    }

    testing::ManualRunLoop loop;
    std::function<void()> onReport = [] {};
    std::vector<std::int64_t> levels;
    std::unique_ptr<LightSensorReporter> reporter;
};

TEST_F(LightSensorReporterTest, LooksOnceAnIntervalWithoutDriftAndReportsNothingForALookWithoutAReading) {
    const auto start = monotonicNow();
    // A look that comes late leaves the next one in its place, sooner than an interval after it.
    const auto early = std::make_shared<std::atomic<bool>>(false);
    onReport = [&] {
        if ((levels.size() >= 5 && *early) || levels.size() == 2000) loop.stop();
    };
    const auto read = [early, last = Instant(), looks = 0]() mutable {
        const Instant now = monotonicNow();
        if (now - std::exchange(last, now) < 1ms) *early = true;
        return ++looks % 3 == 0 ? std::nullopt : std::optional(LightReading{looks, {}});
    };
    report(read, 1ms);
    loop.run();
    reporter.reset();
    EXPECT_TRUE(*early);
    EXPECT_TRUE(std::ranges::none_of(levels, [](auto lux) { return lux % 3 == 0; }));
    EXPECT_GE(monotonicNow() - start, (levels.back() - 1) * 1ms);
}

TEST_F(LightSensorReporterTest, ABusyRunLoopGetsTheLatestReadingAndNoBacklog) {
    const auto tenth = std::make_shared<std::binary_semaphore>(0);
    const auto read = [tenth, looks = 0]() mutable {
        if (++looks == 11) tenth->release();  // the tenth reading was handed over
        return looks > 10 ? std::nullopt : std::optional(LightReading{looks, {}});
    };
    report(read, 1ms);
    tenth->acquire();
    EXPECT_EQ(loop.runPending(), 1U);
    EXPECT_THAT(levels, ElementsAre(10));
}

TEST_F(LightSensorReporterTest, AReadThatHangsDelaysNobody) {
    struct Driver {
        std::binary_semaphore entered{0}, answer{0};
    };
    const auto driver = std::make_shared<Driver>();
    const auto read = [driver] {
        driver->entered.release();
        driver->answer.acquire();
        return LightReading{1, {}};
    };
    bool reported = false;
    {
        testing::ManualRunLoop shortLived;
        const LightSensorReporter hung(read, [] { return 1h; }, shortLived, [&](const auto&) { reported = true; });
        driver->entered.acquire();
    }
    // The run loop is gone when the driver answers at last; the thread then ends and releases what it holds.
    driver->answer.release();
    EXPECT_TRUE(eventually([&] { return driver.use_count() == 2; }));  // this test's two
    EXPECT_FALSE(reported);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
TEST_F(LightSensorReporterTest, StaysSilentWhenTheProcessIsOutOfThreads) {
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_AS, &before), 0);
    const rlimit tiny = {1 << 20, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_AS, &tiny), 0);  // leaves no room for a stack
    report([] { return LightReading{1, {}}; }, 1h);
    ASSERT_EQ(setrlimit(RLIMIT_AS, &before), 0);
    reporter.reset();
    EXPECT_EQ(loop.pendingCount(), 0U);
}
#endif

TEST(IioHidService, LimitsTheReportIntervalAndKnowsNoOtherProperty) {
    IioHidService service("anywhere");
    EXPECT_EQ(service.reportInterval(), 1s) << "never set";
    using Case = std::pair<std::int32_t, std::chrono::microseconds>;
    for (const auto& [value, expected] : {Case{INT32_MAX, 2147483647us}, Case{5'000'000, 5s}, Case{99'999, 100ms},
                                          Case{1, 100ms}, Case{INT32_MIN, 1s}, Case{0, 1s}}) {
        EXPECT_TRUE(service.setProperty("ReportInterval", value));
        EXPECT_EQ(service.reportInterval(), expected) << value;
    }
    EXPECT_FALSE(service.setProperty("BatchInterval", 7'000'000));
    EXPECT_EQ(service.reportInterval(), 1s);
}

class IioHidEventSystemTest : public ::testing::Test {
protected:
    void connect() {
        client = system.createClient();
        client->setMatching({0xFF00, 4});
        services = client->copyServices();
        for (const auto& service : services)
            EXPECT_TRUE(service->setProperty("ReportInterval", 100'000));  // the shortest
    }

    void start() {
        connect();
        const auto receive = [](void* target, void* refcon, HidServiceClient* sender, HidEvent* event) {
            EXPECT_EQ(refcon, nullptr);
            static_cast<IioHidEventSystemTest*>(target)->onEvent(sender, *event);
        };
        client->scheduleWithRunLoop(loop);
        client->registerEventCallback(receive, this, nullptr);
    }

    test::SensorTree tree;
    IioHidEventSystem system{tree.root()};
    testing::ManualRunLoop loop;
    std::unique_ptr<HidEventSystemClient> client;
    std::vector<std::shared_ptr<HidServiceClient>> services;
    std::function<void(HidServiceClient*, HidEvent&)> onEvent = [](auto*, auto&) { ADD_FAILURE() << "an event"; };
};

TEST_F(IioHidEventSystemTest, SeesTheLightSensorsInTheOrderOfTheirNumbers) {
    tree.plug(10, "in_illuminance_input=10");
    tree.plug(9, "in_illuminance_input=9");
    tree.plug(1, "in_accel_x_raw=1 in_accel_scale=1 name=bma");
    tree.plug(5, "in_illuminance_scale=1 in_intensity_scale=1 in_intensity_uv_raw=1");
    fs::create_directory_symlink(tree.device(9), tree.root() / "trigger0");
    fs::create_symlink(tree.device(3), tree.device(3));
    fs::create_directory_symlink(tree.device(10), tree.device(2));  // as the kernel's tree has them
    writeFile(tree.device(4), "a file");

    fs::current_path(tree.root());
    system = IioHidEventSystem(".");  // kept when the process goes elsewhere
    fs::current_path("/");
    connect();
    std::string names;
    for (const auto& service : services)
        names += static_cast<IioHidService&>(*service).directory().filename().native() + " ";
    EXPECT_EQ(names, "iio:device2 iio:device9 iio:device10 ");
    for (const HidMatching& other : {HidMatching{0xFF00, 5}, HidMatching{1, 4}}) {
        client->setMatching(other);
        EXPECT_THAT(client->copyServices(), IsEmpty());
    }
    tree.plug(11, "in_illuminance_input=11");  // for the next client
    client->setMatching({0xFF00, 4});
    EXPECT_EQ(client->copyServices(), services);
}

TEST_F(IioHidEventSystemTest, DeliversAReadingAsAnEventOnRegistrationAndThenOncePerInterval) {
    tree.plug(0,
              "in_illuminance_input=4294967297 in_intensity_red_raw=1 in_intensity_green_raw=2.5"
              " in_intensity_blue_raw=3 in_intensity_clear_raw=4");
    std::vector<std::vector<double>> events;
    onEvent = [&](HidServiceClient* sender, HidEvent& event) {
        EXPECT_EQ(sender, services.front().get());
        EXPECT_EQ(event.type(), 12U);
        events.push_back({static_cast<double>(event.integerValue(0xC0000))});
        for (const std::uint32_t channel : {0xC0001U, 0xC0002U, 0xC0003U, 0xC0004U, 0xC0005U})
            events.back().push_back(event.floatValue(channel));
        EXPECT_EQ(event.integerValue(0xB0000), 0);
        tree.set(0, "in_illuminance_input", "7\n");
        if (events.size() == 2) loop.stop();
    };
    start();
    EXPECT_THAT(events, IsEmpty()) << "delivered inline";
    testing::ManualRunLoop another;
    client->unscheduleFromRunLoop(another);
    loop.run();
    EXPECT_THAT(events, ElementsAre(ElementsAre(4294967297.0, 1, 2.5, 3, 4, 0), ElementsAre(7, 1, 2.5, 3, 4, 0)));
}

TEST_F(IioHidEventSystemTest, NoEventBeginsAfterUnregisteringUnschedulingOrReleasing) {
    tree.plug(0, "in_illuminance_input=1");
    for (const auto& end : std::vector<std::function<void()>>{
             [&] { client->unregisterEventCallback(); }, [&] { client->unscheduleFromRunLoop(loop); },
             [&] { client->setMatching({}); }, [&] { client.reset(); }}) {
        start();
        loop.waitForPending();
        end();
        loop.runPending();
    }
}

TEST_F(IioHidEventSystemTest, TheCallbackMayEndItsClientAndStartAnother) {
    tree.plug(0, "in_illuminance_input=1");
    std::atomic<bool> ended = false;
    std::optional<test::SleepingThread> other;
    onEvent = [&, events = 0](auto*, auto&) mutable {
        if (++events < 3) return start();
        other.emplace([&] {
            client->unregisterEventCallback();
            ended = true;
        });
        EXPECT_FALSE(ended) << "another thread's end waits";
        loop.stop();
    };
    start();
    loop.run();
    other.reset();
    EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace tarvex::platform
