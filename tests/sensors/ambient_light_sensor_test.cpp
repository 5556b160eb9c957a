#include "tarvex/ambient_light_sensor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <tuple>

#include "sensors/ambient_light_tracking.h"
#include "test_platform.h"

namespace tarvex {

namespace {

using ::testing::ElementsAre;

using Reading = std::tuple<std::int32_t, float, float, float, float>;

Reading lastReading() {
    Reading reading{-1, -1.0F, -1.0F, -1.0F, -1.0F};
    auto& [lux, channel0, channel1, channel2, channel3] = reading;
    TXAmbientLightSensor::get_lux(&lux, &channel0, &channel1, &channel2, &channel3);
    return reading;
}

constexpr Reading nothingYet{0, 0.0F, 0.0F, 0.0F, 0.0F};

class AmbientLightSensor : public ::testing::Test {
protected:
    AmbientLightSensor() {
        auto twoSensors = std::make_unique<testing::ScriptedHidEventSystem>(2);
        sensors = twoSensors.get();
        platform->setHidEventSystem(std::move(twoSensors));
    }

    static void startEvery(std::int32_t milliseconds) {
        TXAmbientLightSensor::init_iokit(milliseconds);
        TXAmbientLightSensor::start_iokit();
    }

    test::TestPlatform platform;
    testing::ScriptedHidEventSystem* sensors = nullptr;
};

}  // namespace

TEST_F(AmbientLightSensor, ReadsZeroBeforeTheFirstEventAndIgnoresStartsWithoutAClient) {
    EXPECT_EQ(lastReading(), nothingYet);
    TXAmbientLightSensor::start_iokit();
    TXAmbientLightSensor::stop_iokit();
    EXPECT_TRUE(sensors->calls().empty());
}

TEST_F(AmbientLightSensor, MatchesTheSensorAndSetsTheFirstOnesInterval) {
    TXAmbientLightSensor::init_iokit(5000);
    ASSERT_EQ(sensors->matchings().size(), 1U);
    EXPECT_EQ(sensors->matchings()[0].primaryUsagePage, 65280);
    EXPECT_EQ(sensors->matchings()[0].primaryUsage, 4);
    EXPECT_THAT(sensors->propertiesSet(), ElementsAre(testing::ScriptedHidEventSystem::PropertySet{
                                              .service = 0, .key = "ReportInterval", .value = 5'000'000}));
    TXAmbientLightSensor::start_iokit();
    TXAmbientLightSensor::stop_iokit();
    EXPECT_THAT(sensors->calls(),
                ElementsAre("setMatching", "copyServices", "schedule", "register", "unregister", "unschedule"));
}

TEST_F(AmbientLightSensor, KeepsTheLastReadingOfEitherSensor) {
    startEvery(1000);
    sensors->emit(100, 1, 2, 3, 0.1);
    EXPECT_EQ(lastReading(), (Reading{100, 1.0F, 2.0F, 3.0F, 0.1F}));
    sensors->emit(platform::ambientLightSensorEvent, {{0xC0000, 7}, {0xC0004, 4}}, 1);
    EXPECT_EQ(lastReading(), (Reading{7, 0.0F, 0.0F, 0.0F, 4.0F}));
    sensors->emit(11, {{0xC0000, 99}});
    EXPECT_EQ(lastReading(), (Reading{7, 0.0F, 0.0F, 0.0F, 4.0F})) << "events of other types are ignored";

    TXAmbientLightSensor::stop_iokit();
    sensors->emit(1, 1, 1, 1, 1);
    TXAmbientLightSensor::init_iokit(1);
    EXPECT_EQ(lastReading(), (Reading{7, 0.0F, 0.0F, 0.0F, 4.0F})) << "neither a stop nor an init resets it";
}

TEST_F(AmbientLightSensor, CutsALevelToItsLow32Bits) {
    startEvery(1000);
    sensors->emit(std::int64_t{1} << 31, 0, 0, 0, 0);
    EXPECT_EQ(std::get<0>(lastReading()), std::numeric_limits<std::int32_t>::min());
    sensors->emit((std::int64_t{7} << 32) + 5, 0, 0, 0, 0);
    EXPECT_EQ(std::get<0>(lastReading()), 5);
}

TEST_F(AmbientLightSensor, WorksWithoutAnySensor) {
    platform->setHidEventSystem(std::make_unique<testing::ScriptedHidEventSystem>(0));
    startEvery(1000);
    TXAmbientLightSensor::stop_iokit();
    EXPECT_EQ(lastReading(), nothingYet);
}

TEST_F(AmbientLightSensor, ReleasesAReplacedClientOnlyWhenItWasStopped) {
    startEvery(1000);
    TXAmbientLightSensor::init_iokit(1000);
    EXPECT_EQ(sensors->clientCount(), 2U) << "the first one still runs";
    TXAmbientLightSensor::start_iokit();
    TXAmbientLightSensor::stop_iokit();
    TXAmbientLightSensor::init_iokit(1000);
    EXPECT_EQ(sensors->clientCount(), 2U) << "the second one was stopped";
    sensors->emit(3, 0, 0, 0, 0);
    EXPECT_EQ(std::get<0>(lastReading()), 3) << "the first one still delivers";
}

TEST_F(AmbientLightSensor, ItsExportedCallbackTakesOverAReading) {
    struct Event final : platform::HidEvent {
        platform::HidEventType type() const override { return 12; }
        std::intptr_t integerValue(platform::HidEventField field) const override { return field == 0xC0000 ? 42 : -1; }
        double floatValue(platform::HidEventField field) const override { return field - 0xC0000; }
    } event;
    handle_event(nullptr, nullptr, nullptr, &event);
    EXPECT_EQ(lastReading(), (Reading{42, 1.0F, 2.0F, 3.0F, 4.0F}));
}

TEST_F(AmbientLightSensor, ASamplerStoresTheLastReadingWhetherItIsNewOrNot) {
    PersistenceController store(*platform);
    {
        AmbientLightTracking tracking(store);
        tracking.recordSample();
        startEvery(1000);
        sensors->emit(250, 0.1, 2, 3, 4);
        tracking.recordSample();
        tracking.recordSample();
        EXPECT_EQ(sensors->deliveringCount(), 1U);
    }
    EXPECT_EQ(sensors->deliveringCount(), 0U) << "its end stops the sensor";
    const auto document = decodeTrackingDataWrapper(store.loadTrackingData().value().view(), platform->jsonCoder());
    ASSERT_EQ(document->trackingData.size(), 3U);
    const ValueMap zeros{{"lux", 0}, {"channel0", 0}, {"channel1", 0}, {"channel2", 0}, {"channel3", 0}};
    const ValueMap reading{
        {"lux", 250}, {"channel0", 0.10000000149011612}, {"channel1", 2}, {"channel2", 3}, {"channel3", 4}};
    EXPECT_EQ(document->trackingData[0].data, zeros);
    EXPECT_EQ(document->trackingData[1].data, reading);
    EXPECT_EQ(document->trackingData[2].data, reading);
    EXPECT_EQ(document->trackingData[2].type, "ambient_light");
}

}  // namespace tarvex
