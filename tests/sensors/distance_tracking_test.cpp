#include "sensors/distance_tracking.h"

#include "tarvex/testing/scripted_face_tracking.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using platform::Anchor;
using platform::Transform;

Transform at(float x, float y, float z) {
    Transform transform = Transform::identity();
    transform.columns[12] = x;
    transform.columns[13] = y;
    transform.columns[14] = z;
    return transform;
}

// A host's view that keeps its children by itself.
class CountingView final : public View {
public:
    void addSubview(std::shared_ptr<View> child) override { added.push_back(std::move(child)); }
    std::vector<std::shared_ptr<View>> added;
};

class DistanceTrackingTest : public ::testing::Test {
protected:
    DistanceTrackingTest() {
        testing::ScriptedFaceTracking* faceTracking = nullptr;
        platform.set(&platform::Platform::setFaceTracking, faceTracking, true, 2);
        tracking = DistanceTracking::make(*platform, store);
        scene = faceTracking->views().front().lock();
    }

    test::TestPlatform platform;
    PersistenceController store{*platform};
    std::shared_ptr<DistanceTracking> tracking;
    std::shared_ptr<testing::ScriptedSceneView> scene;
    std::shared_ptr<CountingView> hostView = std::make_shared<CountingView>();
};

TEST_F(DistanceTrackingTest, StartsEachRunAfreshInASceneThatRendersLittleAndAttachesTheViewLater) {
    const auto& settings = scene->settings();
    EXPECT_THAT(settings.order,
                ElementsAre("delegate", "sessionDelegate", "showsStatistics", "preferredFramesPerSecond",
                            "rendersContinuously", "antialiasing", "background"));
    EXPECT_EQ(settings.delegate.lock(), tracking);
    EXPECT_EQ(settings.sessionDelegate.lock(), tracking);
    EXPECT_TRUE(settings.showsStatistics);
    EXPECT_EQ(settings.preferredFramesPerSecond, 1);
    EXPECT_FALSE(settings.rendersContinuously);
    EXPECT_EQ(settings.antialiasing, platform::AntialiasingMode::none);
    EXPECT_EQ(settings.background, platform::SceneBackground::clear);
    EXPECT_FALSE(scene->isRunning());
    tracking->beginMeasurement(hostView);
    tracking->beginMeasurement(hostView);
    ASSERT_THAT(scene->runs(), SizeIs(2));
    for (const auto& run : scene->runs()) {
        EXPECT_EQ(run.options, (platform::RunOptions{.resetTracking = true, .removeExistingAnchors = true}));
        EXPECT_EQ(run.configuration.maximumNumberOfTrackedFaces, 2);
        EXPECT_FALSE(run.configuration.lightEstimationEnabled);
    }
    EXPECT_THAT(hostView->added, IsEmpty()) << "the run comes before the view";
    platform.dispatchQueues->runMain();
    EXPECT_THAT(hostView->added, ElementsAre(scene, scene));
}

TEST_F(DistanceTrackingTest, StoresBothDistancesFromTheWorldsOriginInCentimetresAndPauses) {
    using Case = std::tuple<Transform, Transform, Transform, double, double>;
    std::set<std::shared_ptr<platform::SceneNode>> nodes;
    for (const auto& [leftEye, rightEye, head, left, right] :
         {Case{at(0.03F, 0.04F, 0), at(0, 0, -0.5F), at(0, 0, 0), 50, 5},
          Case{at(0, 0, -0.3F), at(0, 0, 0), at(0, 0, 0), 0, 30.000001907348633},
          Case{at(0, 0, 0), at(0, 0.1875F, 0), at(0, 0, -0.25F), 31.25, 25}}) {
        store.deleteAllTrackingData();
        tracking->beginMeasurement(hostView);
        const Anchor face{.transform = head, .face = Anchor::Face{leftEye, rightEye}};
        const auto node = scene->addAnchor(face);
        EXPECT_TRUE(nodes.insert(node).second) << "a new anchor has a new node";
        std::jthread([&] { scene->updateAnchor(*node, face); }).join();  // the rendering thread
        const TrackingData sample = test::documentOf(store).trackingData.front();
        EXPECT_EQ(sample.type, "distance");
        EXPECT_EQ(sample.data, (ValueMap{{"leftEyeDistanceFromCamera", left}, {"rightEyeDistanceFromCamera", right}}));
        EXPECT_FALSE(scene->isRunning());
        scene->updateAnchor(*node, face);
        EXPECT_EQ(store.countTrackingData(), 1) << "a paused run measures nothing more";
    }
}

TEST_F(DistanceTrackingTest, IgnoresAnchorsThatAreNoFaceAndPausesThreeSecondsAfterEachStart) {
    tracking->beginMeasurement(hostView);
    const Anchor wall{.transform = at(0, 0, -2), .face = std::nullopt};
    EXPECT_EQ(scene->addAnchor(wall), nullptr);
    platform::SceneNode node;
    scene->updateAnchor(node, wall);
    platform.dispatchQueues->advance(2999ms);
    EXPECT_TRUE(scene->isRunning());
    tracking->beginMeasurement(hostView);
    platform.dispatchQueues->advance(1ms);
    EXPECT_FALSE(scene->isRunning()) << "an earlier run's pause is never cancelled: it ends the later run";
    EXPECT_EQ(store.countTrackingData(), 0);

    const std::weak_ptr<View> sceneView = std::exchange(scene, nullptr);
    tracking.reset();
    platform.dispatchQueues->runMain();
    hostView.reset();
    EXPECT_FALSE(sceneView.expired()) << "the later run's pause waits";
    platform.dispatchQueues->advance(3s);
    EXPECT_EQ(platform.dispatchQueues->runMain(), 1U) << "the tracker ends on the main thread";
    EXPECT_TRUE(sceneView.expired());
}

}  // namespace
}  // namespace tarvex
