#include "client/tracking_sessions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "tarvex/ambient_light_sensor.h"
#include "test_platform.h"
#include "testing/scripted_face_tracking.h"

namespace tarvex {

namespace {

using Code = TarvexError::Code;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

const DataReader distanceKey = DataReader::distance(std::nullopt);
const DataReader lightKey = DataReader::ambientLight(std::nullopt);

class StartTracking : public ::testing::Test {
protected:
    // What a start reports: the failures in their order; checks that one success ends them.
    std::vector<std::pair<Code, DataReader>> start(const std::vector<DataReader>& readers,
                                                   const std::shared_ptr<View>& hostView = nullptr) {
        std::vector<std::pair<Code, DataReader>> failures;
        int successes = 0;
        sessions->start(readers, hostView, [&](const Client::Result& result, std::optional<DataReader> reader) {
            EXPECT_EQ(successes, 0) << "nothing comes after the success";
            EXPECT_EQ(result.has_value(), !reader.has_value());
            if (result)
                ++successes;
            else
                failures.emplace_back(result.error().code(), *reader);
        });
        EXPECT_EQ(successes, 1);
        return failures;
    }

    void allow(const DataReader& reader) {
        platform.defaults->setValueForKey(
            true, reader == distanceKey ? "hasConsentedToTrackDistance" : "hasConsentedToTrackAmbientLight");
    }

    void writeInfoPlist(const std::string& content) {
        std::ofstream(platform.directory.path() / "bundle/Info.plist")
            << R"(<?xml version="1.0"?><plist version="1.0"><dict>)" << content << "</dict></plist>";
    }

    testing::ScriptedFaceTracking& installFaceTracking(bool supported, int faces) {
        auto made = std::make_unique<testing::ScriptedFaceTracking>(supported, faces);
        auto& tracking = *made;
        platform->setFaceTracking(std::move(made));
        return tracking;
    }

    void allowEverythingForDistance() {
        writeInfoPlist("<key>NSCameraUsageDescription</key><string></string>");
        allow(distanceKey);
    }

    std::int64_t records() { return store.countTrackingData().value(); }

    test::TestPlatform platform;
    PersistenceController store{*platform};
    std::shared_ptr<TrackingSessions> sessions = std::make_shared<TrackingSessions>(*platform, store);
    std::shared_ptr<View> view = makeHeadlessView();
};

}  // namespace

TEST_F(StartTracking, ReportsSuccessOnceForNoReaders) {
    EXPECT_THAT(start({}), IsEmpty());
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty());
    sessions->start({}, nullptr, {});  // an empty callback is called nowhere
}

TEST_F(StartTracking, AmbientLightReportsTheFirstMissingPrecondition) {
    EXPECT_THAT(start({DataReader::ambientLight(std::nullopt)}), ElementsAre(Pair(Code::noConsentToTrack, lightKey)));
    allow(lightKey);
    EXPECT_THAT(start({DataReader::ambientLight(std::nullopt)}), ElementsAre(Pair(Code::noRefreshRate, lightKey)));
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty());
    EXPECT_EQ(platform.sensor->clientCount(), 0U) << "a failed start leaves the sensor alone";
    EXPECT_THAT(start({DataReader::ambientLight(3)}), IsEmpty());
}

TEST_F(StartTracking, DistanceReportsTheFirstMissingPrecondition) {
    EXPECT_THAT(start({DataReader::distance(std::nullopt)}), ElementsAre(Pair(Code::usageDescription, distanceKey)));
    writeInfoPlist("<key>Other</key><string>x</string>");
    EXPECT_THAT(start({DataReader::distance(5)}, view), ElementsAre(Pair(Code::usageDescription, distanceKey)));
    writeInfoPlist("<key>NSCameraUsageDescription</key><string></string>");
    EXPECT_THAT(start({DataReader::distance(std::nullopt)}), ElementsAre(Pair(Code::noConsentToTrack, distanceKey)));
    allow(distanceKey);
    EXPECT_THAT(start({DataReader::distance(std::nullopt)}), ElementsAre(Pair(Code::noRefreshRate, distanceKey)));
    EXPECT_THAT(start({DataReader::distance(5)}),
                ElementsAre(Pair(Code::noViewToAttachForDistanceTracking, distanceKey)));
    EXPECT_THAT(start({DataReader::distance(5)}, view),
                ElementsAre(Pair(Code::distanceTrackingIsNotAvailable, distanceKey)))
        << "nothing on a bare platform tracks faces";
    installFaceTracking(true, 0);
    EXPECT_THAT(start({DataReader::distance(5)}, view),
                ElementsAre(Pair(Code::distanceTrackingIsNotAvailable, distanceKey)));
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty());
    installFaceTracking(true, 1);
    EXPECT_THAT(start({DataReader::distance(5)}, view), IsEmpty());
    EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(distanceKey, true)));
}

TEST_F(StartTracking, OneReadersFailureDoesNotStopTheOthers) {
    allow(lightKey);
    EXPECT_THAT(start({DataReader::distance(1), DataReader::distance(2), DataReader::ambientLight(1)}),
                ElementsAre(Pair(Code::usageDescription, distanceKey), Pair(Code::usageDescription, distanceKey)));
    EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(lightKey, true)));
}

TEST_F(StartTracking, StartsOneSessionForEachKind) {
    allow(lightKey);
    EXPECT_THAT(start({DataReader::ambientLight(10), DataReader::ambientLight(10)}), IsEmpty());
    EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(lightKey, true)));
    EXPECT_THAT(start({DataReader::ambientLight(1)}), IsEmpty()) << "a running kind is skipped";
    EXPECT_THAT(platform.timers->intervals(), ElementsAre(10.0)) << "and keeps its interval";
}

TEST_F(StartTracking, SamplesOnceInEachIntervalAndFirstAfterOne) {
    allow(lightKey);
    start({DataReader::ambientLight(5)});
    EXPECT_EQ(records(), 0);
    platform.timers->advance(4.9);
    EXPECT_EQ(records(), 0);
    platform.timers->advance(0.2);
    EXPECT_EQ(records(), 1);
    platform.timers->advance(10);
    EXPECT_EQ(records(), 3);
}

TEST_F(StartTracking, LimitsReportIntervalsToTheSensorsRange) {
    struct Case {
        std::int64_t rate;
        std::int32_t microseconds;
    };
    allow(lightKey);
    constexpr std::int32_t most = std::numeric_limits<std::int32_t>::max();
    constexpr std::int32_t least = std::numeric_limits<std::int32_t>::min();
    for (const Case& c : {Case{5, 5'000'000}, Case{2147, 2'147'000'000}, Case{2148, most}, Case{2'147'484, most},
                          Case{std::numeric_limits<std::int64_t>::max(), most}, Case{0, 0}, Case{-1, -1'000'000},
                          Case{std::numeric_limits<std::int64_t>::min(), least}}) {
        start({DataReader::ambientLight(c.rate)});
        EXPECT_EQ(platform.sensor->propertiesSet().back().value, c.microseconds) << c.rate;
        sessions->stopAll();
    }
}

TEST_F(StartTracking, StoppingOneKindLeavesTheOtherRunning) {
    allow(lightKey);
    allowEverythingForDistance();
    auto& faceTracking = installFaceTracking(true, 1);
    start({DataReader::ambientLight(1), DataReader::distance(1)}, view);
    sessions->stop(DataReader::distance(99));
    EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(distanceKey, false), Pair(lightKey, true)));
    platform.timers->advance(1);
    EXPECT_EQ(records(), 1) << "light goes on";
    EXPECT_TRUE(faceTracking.views().front().expired()) << "the tracker was released";

    start({DataReader::distance(2)}, view);
    EXPECT_EQ(faceTracking.views().size(), 2U) << "a new start has a new tracker";
}

TEST_F(StartTracking, StoppingAKindThatNeverRanMarksItStopped) {
    sessions->stop(DataReader::ambientLight(1));
    EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(lightKey, false)));
    sessions->stopAll();
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty());
}

TEST_F(StartTracking, StoppingEverythingStopsSensorAndTimers) {
    allow(lightKey);
    start({DataReader::ambientLight(1)});
    EXPECT_EQ(platform.sensor->deliveringCount(), 1U);
    sessions->stopAll();
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty());
    EXPECT_EQ(platform.sensor->deliveringCount(), 0U);
    EXPECT_THAT(platform.timers->intervals(), IsEmpty());
    platform.timers->advance(10);
    EXPECT_EQ(records(), 0);

    start({DataReader::ambientLight(1)});
    platform.timers->advance(1);
    EXPECT_EQ(records(), 1) << "and can be started again";
}

TEST_F(StartTracking, ACompletionMayStopWhatWasStarted) {
    allow(lightKey);
    sessions->start({DataReader::ambientLight(1)}, nullptr, [this](auto&&...) { sessions->stopAll(); });
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty());
    EXPECT_THAT(platform.timers->intervals(), IsEmpty());
}

TEST_F(StartTracking, TicksDoNothingOnceTheSessionsAreGone) {
    allow(lightKey);
    start({DataReader::ambientLight(1)});
    sessions.reset();
    platform.timers->advance(5);
    EXPECT_EQ(records(), 0);
}

TEST_F(StartTracking, ReadsThePropertyListAfreshAndTakesADamagedOneAsAbsent) {
    allow(distanceKey);
    std::ofstream(platform.directory.path() / "bundle/Info.plist") << "<plist><dict><key>NSCameraUsage";
    EXPECT_THAT(start({DataReader::distance(1)}, view), ElementsAre(Pair(Code::usageDescription, distanceKey)));
    writeInfoPlist("<key>NSCameraUsageDescription</key><true/>");
    EXPECT_THAT(start({DataReader::distance(1)}, view),
                ElementsAre(Pair(Code::distanceTrackingIsNotAvailable, distanceKey)))
        << "a value of any type counts";
}

}  // namespace tarvex
