#include "client/tracking_sessions.h"

#include "platform/sqlite/sample_store.h"
#include "recorded_log.h"
#include "tarvex/testing/scripted_face_tracking.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using Code = TarvexError::Code;

const DataReader distanceKey = DataReader::distance(std::nullopt);
const DataReader lightKey = DataReader::ambientLight(std::nullopt);

class StartTracking : public ::testing::Test {
protected:
    // Returns the failures that a start reports, in their order; checks that one success ends them.
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

    testing::ScriptedFaceTracking& installFaceTracking(bool supported, int faces) {
        testing::ScriptedFaceTracking* tracking = nullptr;
        platform.set(&platform::Platform::setFaceTracking, tracking, supported, faces);
        return *tracking;
    }

    std::int64_t records() { return store.countTrackingData().value(); }

    test::TestPlatform platform;
    PersistenceController store{*platform};
    std::shared_ptr<TrackingSessions> sessions = std::make_shared<TrackingSessions>(*platform, store);
    std::shared_ptr<View> view = makeHeadlessView();
};

TEST_F(StartTracking, AmbientLightReportsTheFirstMissingPrecondition) {
    EXPECT_THAT(start({lightKey}), ElementsAre(Pair(Code::noConsentToTrack, lightKey)));
    allow(lightKey);
    EXPECT_THAT(start({lightKey}), ElementsAre(Pair(Code::noRefreshRate, lightKey)));
    EXPECT_EQ(platform.sensor->clientCount(), 0U) << "a failed start leaves the sensor alone";
    EXPECT_THAT(start({}), IsEmpty());
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty());
    EXPECT_THAT(start({DataReader::ambientLight(3)}), IsEmpty());
    sessions->start({}, nullptr, {});  // an empty callback is called nowhere
}

TEST_F(StartTracking, DistanceReportsTheFirstMissingPrecondition) {
    const auto fails = [](Code code) { return ElementsAre(Pair(code, distanceKey)); };
    const DataReader distance = DataReader::distance(5);
    EXPECT_THAT(start({distanceKey}), fails(Code::usageDescription));
    platform.writeInfoPlist("<key>Other</key><string>x</string>");
    EXPECT_THAT(start({distance}, view), fails(Code::usageDescription));
    writeFile(platform.directory.path() / "bundle/Info.plist", "<plist><dict><key>NSCameraUsage");
    EXPECT_THAT(start({distance}, view), fails(Code::usageDescription)) << "a damaged list counts as none";
    platform.writeInfoPlist("<key>NSCameraUsageDescription</key><true/>");
    EXPECT_THAT(start({distanceKey}), fails(Code::noConsentToTrack)) << "a value of any type counts";
    allow(distanceKey);
    EXPECT_THAT(start({distanceKey}), fails(Code::noRefreshRate));
    EXPECT_THAT(start({distance}), fails(Code::noViewToAttachForDistanceTracking));
    EXPECT_THAT(start({distance}, view), fails(Code::distanceTrackingIsNotAvailable))
        << "nothing on a bare platform tracks faces";
    installFaceTracking(true, 0);
    EXPECT_THAT(start({distance}, view), fails(Code::distanceTrackingIsNotAvailable));
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty());
    installFaceTracking(true, 1);
    for (const auto& [rate, warnings] : {std::pair{0, 1U}, {1, 1U}, {2, 0U}, {3, 1U}, {4, 0U}, {5, 0U}}) {
        sessions->stopAll();
        const test::RecordedLog log;
        EXPECT_THAT(start({DataReader::distance(rate), DataReader::distance(rate)}, view), IsEmpty());
        EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(distanceKey, true)));
        EXPECT_EQ(log.lines().size(), warnings) << rate;
    }
}

TEST_F(StartTracking, OneReadersFailureDoesNotStopTheOthersAndEachKindHasOneSession) {
    allow(lightKey);
    EXPECT_THAT(start({DataReader::distance(1), DataReader::distance(2), DataReader::ambientLight(10),
                       DataReader::ambientLight(10)}),
                ElementsAre(Pair(Code::usageDescription, distanceKey), Pair(Code::usageDescription, distanceKey)));
    EXPECT_THAT(start({DataReader::ambientLight(1)}), IsEmpty()) << "a running kind is skipped";
    EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(lightKey, true)));
    EXPECT_THAT(platform.timers->intervals(), ElementsAre(10.0)) << "and keeps its interval";
}

TEST_F(StartTracking, SamplesOnceInEachIntervalAndFirstAfterOne) {
    allow(lightKey);
    start({DataReader::ambientLight(5)});
    for (const auto& [seconds, expected] : std::vector<std::pair<double, int>>{{4.9, 0}, {0.2, 1}, {10, 3}}) {
        platform.timers->advance(seconds);
        EXPECT_EQ(records(), expected);
    }
    sessions.reset();
    platform.timers->advance(5);
    EXPECT_EQ(records(), 3) << "ticks do nothing once the sessions are gone";
}

TEST_F(StartTracking, LimitsReportIntervalsToTheSensorsRange) {
    using Rates = std::numeric_limits<std::int64_t>;
    using Intervals = std::numeric_limits<std::int32_t>;
    using Case = std::pair<std::int64_t, std::int32_t>;
    allow(lightKey);
    for (const auto& [rate, microseconds] :
         {Case{5, 5'000'000}, Case{2147, 2'147'000'000}, Case{2148, Intervals::max()},
          Case{2'147'484, Intervals::max()}, Case{Rates::max(), Intervals::max()}, Case{0, 0}, Case{-1, -1'000'000},
          Case{Rates::min(), Intervals::min()}}) {
        start({DataReader::ambientLight(rate)});
        EXPECT_EQ(platform.sensor->propertiesSet().back().value, microseconds) << rate;
        sessions->stopAll();
    }
}

TEST_F(StartTracking, StoppingReleasesTrackersAndTimersOfItsKindOrOfAll) {
    sessions->stop(DataReader::ambientLight(1));
    EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(lightKey, false))) << "it never ran";
    platform.writeInfoPlist("<key>NSCameraUsageDescription</key><string></string>");
    allow(lightKey);
    allow(distanceKey);
    auto& faceTracking = installFaceTracking(true, 1);
    start({DataReader::ambientLight(1), DataReader::distance(1)}, view);
    sessions->stop(DataReader::distance(99));
    EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(distanceKey, false), Pair(lightKey, true)));
    platform.timers->advance(1);
    EXPECT_EQ(records(), 1) << "light goes on";
    platform.dispatchQueues->runMain();
    EXPECT_TRUE(faceTracking.views().front().expired()) << "the tracker was released";
    start({DataReader::distance(2)}, view);
    EXPECT_THAT(faceTracking.views(), SizeIs(2)) << "a new start has a new tracker";
    sessions->stop(DataReader::ambientLight(99));
    EXPECT_EQ(platform.sensor->deliveringCount(), 0U);
    EXPECT_THAT(sessions->trackingInProgress(), UnorderedElementsAre(Pair(distanceKey, true), Pair(lightKey, false)));
    start({DataReader::ambientLight(1)});
    sessions->stopAll();
    platform.dispatchQueues->runMain();
    EXPECT_TRUE(faceTracking.views().back().expired());
    EXPECT_EQ(platform.sensor->deliveringCount(), 0U);
    EXPECT_THAT(platform.timers->intervals(), IsEmpty());
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty());
    sessions->start({DataReader::ambientLight(1)}, nullptr, [this](auto&&...) { sessions->stopAll(); });
    EXPECT_THAT(sessions->trackingInProgress(), IsEmpty()) << "a completion may stop what was started";
}

TEST_F(StartTracking, ATickThatComesAfterItsSessionDoesNothingInTheNext) {
    struct LateTimers final : platform::TimerScheduler {
        struct NeverStopped final : platform::Timer {
            void invalidate() override {}
        };
        std::shared_ptr<platform::Timer> scheduledTimer(double /*interval*/, std::function<void()> block) override {
            blocks.push_back(std::move(block));
            return std::make_shared<NeverStopped>();
        }
        std::deque<std::function<void()>> blocks;
    };
    LateTimers* timers = nullptr;
    platform.set(&platform::Platform::setTimerScheduler, timers);
    const auto& faceTracking = installFaceTracking(true, 1);
    platform.writeInfoPlist("<key>NSCameraUsageDescription</key><string></string>");
    for (const DataReader& key : {lightKey, distanceKey}) {
        allow(key);
        start({key == lightKey ? DataReader::ambientLight(1) : DataReader::distance(4)}, view);
        sessions->stop(key);
        start({key == lightKey ? DataReader::ambientLight(1) : DataReader::distance(4)}, view);
    }
    const auto measurements = [&] { return faceTracking.views().back().lock()->runs().size(); };
    ASSERT_EQ(timers->blocks.size(), 4U);
    timers->blocks[0]();
    timers->blocks[2]();
    EXPECT_EQ(records(), 0);
    EXPECT_EQ(measurements(), 0U);
    timers->blocks[1]();
    timers->blocks[3]();
    EXPECT_EQ(records(), 1);
    EXPECT_EQ(measurements(), 1U);
}

TEST_F(StartTracking, StoppingCommitsWhatIsPending) {
    allow(lightKey);
    start({DataReader::ambientLight(1)});
    platform.timers->advance(1);
    test::OtherProgram other(platform.directory.path() / "data/TrackingDataContainer.sqlite");
    for (const bool everything : {false, true}) {
        start({DataReader::ambientLight(1)});
        other.beginToWrite();
        platform.timers->advance(1);
        other.end();
        const int before = std::stoi(other.run("SELECT count(*) FROM DataEntry"));
        everything ? sessions->stopAll() : sessions->stop(lightKey);
        EXPECT_EQ(other.run("SELECT count(*) FROM DataEntry"), std::to_string(before + 1));
    }
}

}  // namespace
}  // namespace tarvex
