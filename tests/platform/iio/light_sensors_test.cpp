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
    for (const std::string_view text :
         {"1,5\n", "nan\n", "-nan(x)\n", "inf\n", "1e999\n", "", "\n", "12 dB\n", "1 2 3\n", "0x10\n", "-\n"})
        EXPECT_EQ(parseSensorNumber(text), std::nullopt) << text;
    EXPECT_EQ(parseSensorNumber(std::string_view("1\0", 2)), std::nullopt);
}

class IioLightSensorTest : public ::testing::Test {
protected:
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
         {// opt4060
          Case{"in_illuminance_input=321.5 in_intensity_red_raw=11 in_intensity_green_raw=22"
               " in_intensity_blue_raw=33 in_intensity_clear_raw=44",
               {322, {11, 22, 33, 44}}},
          // apds9960
          Case{"in_intensity_clear_raw=400 in_intensity_red_raw=100 in_intensity_green_raw=200"
               " in_intensity_blue_raw=300 in_intensity_scale=16 scale=16 in_proximity_raw=7",
               {0, {100, 200, 300, 400}}},
          // isl29125, and with a fourth channel tcs3472, tcs3414, bh1745, veml6040
          Case{"in_intensity_green_raw=20 in_intensity_red_raw=65535 in_intensity_blue_raw=30",
               {0, {65535, 20, 30, 0}}},
          // veml6030
          Case{"in_illuminance_raw=9999 in_illuminance_input=57 in_illuminance_scale=0.5 in_intensity_both_raw=812",
               {57, {812, 0, 0, 0}}},
          // tsl2591
          Case{"in_illuminance_input=10 in_intensity_both_raw=500 in_intensity_ir_raw=90", {10, {500, 90, 0, 0}}},
          // hid-sensor-als: 250.5, to the nearest
          Case{"in_illuminance_raw=250000 in_illuminance_scale=0.001 in_illuminance_offset=500"
               " in_intensity_both_raw=250000",
               {251, {250000, 0, 0, 0}}},
          Case{"in_illuminance_raw=42", {42, {}}}, Case{"in_illuminance_input=-3.5", {-4, {}}},
          Case{"in_illuminance_input=0.49", {0, {}}}, Case{"in_illuminance_input=4294967297", {4294967297, {}}},
          Case{"in_illuminance_input=9223372036854774784", {9223372036854774784, {}}},
          Case{"in_illuminance_input=-9223372036854775808", {INT64_MIN, {}}},
          // numbered, with a scale that is shared
          Case{"in_illuminance1_raw=7 in_illuminance0_raw=100 in_illuminance1_scale=9 in_illuminance_scale=2"
               " in_illuminance0_offset=-10 in_intensity0_both_raw=5 in_intensity1_ir_raw=6",
               {180, {5, 6, 0, 0}}},
          Case{"in_illuminance0_raw=100 in_illuminance0_scale=3 in_illuminance_scale=2", {300, {}}},
          // the tenth after the ninth
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
    const auto link = [](const char* target) {
        return [=](const fs::path& path) { fs::create_symlink(target, path); };
    };
    const auto text = [](std::string value) { return [=](const fs::path& path) { writeFile(path, value); }; };
    const LightReading good = {22, {3, 0, 0, 0}};
    tree.plug(0, "in_illuminance_raw=10 in_illuminance_scale=2 in_illuminance_offset=1 in_intensity_both_raw=3");
    for (const char* name :
         {"in_illuminance_raw", "in_illuminance_scale", "in_illuminance_offset", "in_intensity_both_raw"})
        for (const auto& [what, replace] : std::map<std::string, std::function<void(const fs::path&)>>{
                 {"garbage", text("garbage\n")},
                 {"longer than any attribute", text("1" + std::string(256, ' '))},
                 {"a FIFO without a writer", [](const auto& path) { ASSERT_EQ(mkfifo(path.c_str(), 0600), 0); }},
                 {"a directory, whose read fails", [](const auto& path) { fs::create_directory(path); }},
                 {"a link to itself", link(name)},
                 {"a link to a terminal", link("/dev/ptmx")},
                 // No page is mapped at the start of a process: a read there fails with EIO.
                 {"an I/O error", link("/proc/self/mem")}}) {
            SCOPED_TRACE(std::string(name) + " is " + what);
            const auto attribute = tree.device(0) / name;
            const std::string value = contentsOf(attribute);
            IioLightSensor sensor(tree.device(0));
            EXPECT_THAT(sensor.read(), Optional(good));
            fs::remove(attribute);
            replace(attribute);
            EXPECT_EQ(sensor.read(), std::nullopt);
            fs::remove(attribute);
            tree.set(0, name, value);
            EXPECT_THAT(sensor.read(), Optional(good));
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
    std::counting_semaphore<> looks(1);
    const auto replaceBy = [&](int number) {
        looks.acquire();
        fs::create_directory_symlink(tree.device(number), tree.root() / "fresh");
        fs::rename(tree.root() / "fresh", tree.device(0));
    };
    replaceBy(1);
    const auto times = std::views::iota(0, 500);
    const std::jthread other([&] { std::ranges::for_each(times, [&](int i) { replaceBy(1 + i % 2); }); });
    IioLightSensor sensor(tree.device(0));
    std::vector<std::optional<LightReading>> readings;
    for ([[maybe_unused]] const int i : times) {
        looks.release();
        readings.push_back(sensor.read());  // none when it is replaced too often meanwhile
    }
    const auto one = Optional(LightReading{1, {1, 0, 0, 0}});
    const auto two = Optional(LightReading{2, {2, 0, 0, 0}});
    EXPECT_THAT(readings, Each(AnyOf(one, two, std::nullopt)));
}

class LightSensorReporterTest : public ::testing::Test {
protected:
    // The reader's thread may look once more while its reporter is being destroyed: `read` owns what it uses.
    void report(LightSensorReporter::Read read, std::chrono::microseconds interval) {
        reporter = std::make_unique<LightSensorReporter>(
            std::move(read), [interval] { return interval; }, loop,
            [this](const auto& reading) {
                levels.push_back(reading.lux);
                if (onReport) onReport();
            });
    }

    testing::ManualRunLoop loop;
    std::function<void()> onReport;
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
        std::binary_semaphore entered{0};
        std::binary_semaphore answer{0};
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
    std::vector<std::string> names;
    for (const auto& service : services)
        names.push_back(static_cast<IioHidService&>(*service).directory().filename());
    EXPECT_THAT(names, ElementsAre("iio:device2", "iio:device9", "iio:device10"));
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
        if (events.size() == 2) loop.stop();
    };
    start();
    EXPECT_THAT(events, IsEmpty()) << "delivered inline";
    testing::ManualRunLoop another;
    client->unscheduleFromRunLoop(another);
    loop.run();
    EXPECT_THAT(events, ElementsAre(ElementsAre(4294967297.0, 1, 2.5, 3, 4), ElementsAre(7, 1, 2.5, 3, 4)));
}

TEST_F(IioHidEventSystemTest, NoEventBeginsAfterUnregisteringUnschedulingOrReleasing) {
    tree.plug(0, "in_illuminance_input=1");
    for (const auto& end : std::vector<std::function<void()>>{
             [&] { client->unregisterEventCallback(); }, [&] { client->unscheduleFromRunLoop(loop); },
             [&] { client->setMatching({}); }, [&] { client.reset(); }}) {
        connect();
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
        if (++events < 3) {
            connect();
            return start();
        }
        other.emplace([&] {
            client->unregisterEventCallback();
            ended = true;
        });
        EXPECT_FALSE(ended) << "another thread's end waits";
        loop.stop();
    };
    connect();
    start();
    loop.run();
    other.reset();
    EXPECT_TRUE(ended);
}

}  // namespace
}  // namespace tarvex::platform
