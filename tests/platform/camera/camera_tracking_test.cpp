#include "platform/camera/scripted_frame_source.h"
#include "platform/camera/tracked_camera.h"
#include "recorded_log.h"
#include "sensors/distance_tracking.h"

namespace tarvex {

namespace {

using camera::Options;
using test::record;
using test::Tracked;

const std::filesystem::path models = TARVEX_FACE_MODELS;
const std::filesystem::path photographs = TARVEX_TEST_PICTURES;

Options photographOptions() {
    return {.source = camera::Pictures{.paths = {photographs / "sample1.jpg", photographs / "sample5.jpg"}},
            .modelDirectory = models};
}

}  // namespace

TEST(CameraTracking, StoresBothEyesOfTheFacesThatTheCameraSees) {
    const Tracked tracked(photographOptions());
    ASSERT_TRUE(tracked.platform->faceTracking().isSupported());
    EXPECT_EQ(tracked.platform->faceTracking().supportedNumberOfTrackedFaces(), 1);
    const auto tracking = DistanceTracking::make(*tracked.platform, *tracked.store);
    const auto host = makeHeadlessView();
    for (int measurement = 1; measurement <= 3; ++measurement) {
        tracking->beginMeasurement(host);
        ASSERT_TRUE(eventually([&] { return tracked.store->countTrackingData() == measurement; }));
        // The measurement's own pause comes after its record, and would end a run that began in between.
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    }
    const auto samples = tracked.samples();
    for (const TrackingData& sample : samples) {
        EXPECT_EQ(sample.type, "distance");
        const double left = sample.data.at("leftEyeDistanceFromCamera");
        const double right = sample.data.at("rightEyeDistanceFromCamera");
        EXPECT_GT(left, 10);
        EXPECT_LT(left, 300);
        EXPECT_NEAR(left, right, 6.5) << "two eyes are no farther apart than they are in a face";
    }
    EXPECT_NE(samples.at(0).data, samples.at(1).data) << "each run shows the next picture";
    EXPECT_EQ(samples.at(0).data, samples.at(2).data) << "the same picture gives the same numbers";
}

TEST(CameraTracking, MultipliesByTheCalibrationFactorAndMeasuresAVideoAsItsPicture) {
    const auto measuredOnce = [](const Options& options) {
        const Tracked tracked(options);
        const auto tracking = DistanceTracking::make(*tracked.platform, *tracked.store);
        tracking->beginMeasurement(makeHeadlessView());
        EXPECT_TRUE(eventually([&] { return tracked.store->countTrackingData() == 1; }));
        return tracked.samples().at(0).data.at("leftEyeDistanceFromCamera");
    };
    Options options = photographOptions();
    const double inPicture = measuredOnce(options);
    options.calibrationFactor = 1.25;
    EXPECT_NEAR(measuredOnce(options), 1.25 * inPicture, 1e-3);

    const TemporaryDirectory directory;
    const auto file = directory.path() / "face.avi";
    record("filesrc location=\"" + (photographs / "sample1.jpg").string() +
               "\" ! jpegdec ! imagefreeze num-buffers=5 ! jpegenc quality=95 ! avimux",
           file);
    EXPECT_NEAR(measuredOnce({.source = camera::VideoFile{file}, .modelDirectory = models}), inPicture,
                0.02 * inPicture);
}

TEST(CameraTracking, IsNotSupportedWithoutACameraOrModelsAndReportsTheReasonOnce) {
    const auto with = [](camera::Source source) {
        return Options{.source = std::move(source), .modelDirectory = models};
    };
    Options noModels = photographOptions();
    noModels.modelDirectory = "/nonexistent";
    Options noField = photographOptions();
    noField.horizontalFieldOfView = 180;
    for (const auto& [options, reason] :
         {std::pair{noModels, "the face models are not in /nonexistent"},
          {noField, "field of view, eye spacing or calibration factor is out of range"},
          {with(camera::Pictures{}), "the list of pictures is empty"},
          {with(camera::CameraDevice{.node = "/dev/null/video0"}), "there is no camera /dev/null/video0"},
          {with(camera::VideoFile{.path = "/nonexistent"}), "there is no file /nonexistent"},
          {with(camera::PortalCamera{}), "handed over no camera"}}) {
        SCOPED_TRACE(reason);
        const Tracked tracked(options);
        const test::RecordedLog log;
        EXPECT_FALSE(tracked.platform->faceTracking().isSupported());
        EXPECT_FALSE(tracked.platform->faceTracking().isSupported());
        EXPECT_THAT(log.lines(), ElementsAre(HasSubstr(reason)));
    }
}

TEST(CameraTracking, SurvivesThatThePlatformGoesWhileAFaceIsReported) {
    /// Pauses again and again, so that the platform goes meanwhile.
    struct Pausing final : platform::FaceTrackingDelegate {
        std::shared_ptr<platform::SceneNode> nodeForAnchor(const platform::Anchor& /*anchor*/) override {
            return std::make_shared<platform::SceneNode>();
        }
        void didUpdateNode(platform::SceneNode& /*node*/, const platform::Anchor& /*anchor*/) override {
            reported.set_value();
            for (int pause = 0; pause < 100'000; ++pause)
                session->pause();
        }
        platform::FaceTrackingSession* session = nullptr;
        std::promise<void> reported;
    };
    for (int round = 0; round < 5; ++round) {
        Tracked tracked(photographOptions());
        const auto view = tracked.platform->faceTracking().makeSceneView();
        const auto delegate = std::make_shared<Pausing>();
        delegate->session = &view->session();
        view->setDelegate(delegate);
        view->session().run({}, {});
        delegate->reported.get_future().wait();
        tracked.store.reset();
        tracked.platform.reset();
        view->session().run({}, {});
        view->session().pause();
    }
}

TEST(CameraTracking, LetsAProcessEndAtAnyMomentOfARun) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const TemporaryDirectory remains;  // with the directories of the processes, which leave them
    ::setenv("TMPDIR", remains.path().c_str(), 1);
    for (const int milliseconds : {0, 5, 20, 60, 150}) {
        EXPECT_EXIT(
            {
                auto& tracked = *new Tracked(photographOptions());
                DistanceTracking::make(*tracked.platform, *tracked.store)->beginMeasurement(makeHeadlessView());
                std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
                std::exit(7);
            },
            ::testing::ExitedWithCode(7), "");
    }
}

}  // namespace tarvex
