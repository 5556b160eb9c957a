#include "tarvex/ambient_light_sensor.h"

#include "platform/iio/iio_hid_event_system.h"
#include "platform/iio/sensor_tree.h"
#include "sensors/ambient_light_tracking.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using Reading = std::tuple<std::int32_t, float, float, float, float>;

Reading lastReading() {
    Reading reading{-1, -1.0F, -1.0F, -1.0F, -1.0F};
    std::apply([](auto&... values) { TXAmbientLightSensor::get_lux(&values...); }, reading);
    return reading;
}

void operate(std::string_view operations, std::int32_t milliseconds = std::numeric_limits<std::int32_t>::max()) {
    for (const char operation : operations) {
        if (operation == 'i') TXAmbientLightSensor::init_iokit(milliseconds);
        if (operation == 's') TXAmbientLightSensor::start_iokit();
        if (operation == 'x') TXAmbientLightSensor::stop_iokit();
    }
}

class AmbientLightSensor : public ::testing::Test {
protected:
    AmbientLightSensor() { platform.set(&platform::Platform::setHidEventSystem, sensors, 2U); }

    test::TestPlatform platform;
    testing::ScriptedHidEventSystem* sensors = nullptr;
};

TEST_F(AmbientLightSensor, MatchesTheSensorAndSetsTheFirstOnesInterval) {
    operate("sx");
    EXPECT_THAT(sensors->calls(), IsEmpty()) << "without a client";
    operate("isx", 5000);
    ASSERT_THAT(sensors->matchings(), SizeIs(1));
    EXPECT_EQ(sensors->matchings()[0].primaryUsagePage, 65280);
    EXPECT_EQ(sensors->matchings()[0].primaryUsage, 4);
    EXPECT_THAT(sensors->propertiesSet(), ElementsAre(testing::ScriptedHidEventSystem::PropertySet{
                                              .service = 0, .key = "ReportInterval", .value = 5'000'000}));
    EXPECT_THAT(sensors->calls(),
                ElementsAre("setMatching", "copyServices", "schedule", "register", "unregister", "unschedule"));
}

TEST_F(AmbientLightSensor, KeepsTheLastReadingOfEitherSensor) {
    EXPECT_EQ(lastReading(), Reading());
    operate("is");
    sensors->emit(100, 1, 2, 3, 0.1);
    EXPECT_EQ(lastReading(), Reading(100, 1, 2, 3, 0.1F));
    sensors->emit((std::int64_t{7} << 32) + (std::int64_t{1} << 31), 0, 0, 0, 0);
    EXPECT_EQ(lastReading(), Reading(std::numeric_limits<std::int32_t>::min(), 0, 0, 0, 0)) << "the low 32 bits";
    sensors->emit(platform::ambientLightSensorEvent, {{0xC0000, 7}, {0xC0004, 4}}, 1);
    sensors->emit(11, {{0xC0000, 99}});
    EXPECT_EQ(lastReading(), Reading(7, 0, 0, 0, 4)) << "events of other types are ignored";
    operate("x");
    sensors->emit(1, 1, 1, 1, 1);
    operate("i");
    EXPECT_EQ(lastReading(), Reading(7, 0, 0, 0, 4)) << "neither a stop nor an init resets it";

    struct Event final : platform::HidEvent {
        platform::HidEventType type() const override { return 12; }
        std::intptr_t integerValue(platform::HidEventField field) const override { return field == 0xC0000 ? 42 : -1; }
        double floatValue(platform::HidEventField field) const override { return field - 0xC0000; }
    } event;
    handle_event(nullptr, nullptr, nullptr, &event);
    EXPECT_EQ(lastReading(), Reading(42, 1, 2, 3, 4)) << "the exported callback";
}

TEST_F(AmbientLightSensor, OnlyAStopEndsAReplacedClientThatRuns) {
    using Case = std::tuple<std::string_view, std::size_t, std::size_t>;
    for (const auto& [order, clients, delivering] :
         {Case{"ii", 1, 0}, Case{"iisx", 1, 0}, Case{"isi", 2, 1}, Case{"isii", 2, 1}, Case{"isis", 2, 2},
          Case{"isisi", 3, 2}, Case{"isix", 1, 0}, Case{"isisx", 1, 0}, Case{"isxi", 1, 0}, Case{"isxsi", 2, 1},
          Case{"isxx", 1, 0}, Case{"isss", 1, 1}}) {
        operate(order);
        EXPECT_EQ(sensors->clientCount(), clients) << order;
        EXPECT_EQ(sensors->deliveringCount(), delivering) << order;
        operate("x");
    }
}

// A host may start and stop within its consent callback while the main thread receives the events.
TEST_F(AmbientLightSensor, ReadsNothingAfterAStopWhateverTheOrderOfOtherThreadsOperations) {
    const test::SensorTree tree;
    platform->setHidEventSystem(std::make_unique<platform::IioHidEventSystem>(tree.root()));
    operate("isx");  // without any sensor
    EXPECT_EQ(lastReading(), Reading());
    for (const int number : {1, 2})
        for (const char* name : {"illuminance_input", "intensity_red_raw", "intensity_green_raw", "intensity_blue_raw",
                                 "intensity_clear_raw"})
            tree.plug(number, std::string("in_") + name + "=" + std::to_string(number));
    constexpr int orders = 729;  // of six operations
    const auto runOrder = [](int order) {
        for (int step = 0; step < 6; ++step, order /= 3) {
            operate({&"sxi"[order % 3], 1});
            EXPECT_THAT(lastReading(), AnyOf(Reading(), Reading(1, 1, 1, 1, 1), Reading(2, 2, 2, 2, 2)));
        }
    };
    const auto threadCount = [] {
        return std::ranges::distance(std::filesystem::directory_iterator("/proc/self/task"));
    };
    const std::jthread other([&] {
        const auto before = threadCount();
        const auto stopsEverything = [&] {
            operate("x");
            const auto reading = lastReading();
            return eventually([&] { return threadCount() == before; }) && lastReading() == reading;
        };
        for (int order = 0; order < orders && !HasFailure(); ++order) {
            runOrder(order);
            EXPECT_TRUE(stopsEverything()) << order;
        }
        std::jthread third([&] { std::ranges::for_each(std::views::iota(0, orders), runOrder); });
        std::ranges::for_each(std::views::iota(0, orders), runOrder);
        third.join();
        EXPECT_TRUE(stopsEverything());
        platform->mainRunLoop().stop();
    });
    platform->mainRunLoop().run();
    EXPECT_NE(lastReading(), Reading()) << "no event came";
}

TEST_F(AmbientLightSensor, ASamplerStoresTheLastReadingWhetherItIsNewOrNot) {
    PersistenceController store(*platform);
    {
        AmbientLightTracking tracking(store);
        tracking.recordSample();
        operate("is");
        sensors->emit(250, 0.1, 2, 3, 4);
        tracking.recordSample();
        tracking.recordSample();
        EXPECT_EQ(sensors->deliveringCount(), 1U);
    }
    EXPECT_EQ(sensors->deliveringCount(), 0U) << "its end stops the sensor";
    const ValueMap zeros{{"lux", 0}, {"channel0", 0}, {"channel1", 0}, {"channel2", 0}, {"channel3", 0}};
    const ValueMap reading{
        {"lux", 250}, {"channel0", 0.10000000149011612}, {"channel1", 2}, {"channel2", 3}, {"channel3", 4}};
    std::vector<std::pair<std::string, ValueMap>> samples;
    for (const auto& sample : test::documentOf(store).trackingData)
        samples.emplace_back(sample.type, sample.data);
    const std::string type = "ambient_light";
    EXPECT_THAT(samples, ElementsAre(Pair(type, zeros), Pair(type, reading), Pair(type, reading)));
}

}  // namespace
}  // namespace tarvex
