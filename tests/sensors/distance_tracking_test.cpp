#include "sensors/distance_tracking.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>
#include <vector>

#include "test_platform.h"
#include "testing/scripted_face_tracking.h"

namespace tarvex {

namespace {

using namespace std::chrono_literals;
using platform::Anchor;
using platform::Transform;

Transform at(float x, float y, float z) {
    Transform transform = Transform::identity();
    transform.columns[12] = x;
    transform.columns[13] = y;
    transform.columns[14] = z;
    return transform;
}

Anchor faceWith(const Transform& leftEye, const Transform& rightEye, const Transform& head = Transform::identity()) {
    return {.transform = head, .face = Anchor::Face{.leftEyeTransform = leftEye, .rightEyeTransform = rightEye}};
}

// A host's view that keeps count of what is put into it.
class CountingView final : public View {
public:
    void addSubview(std::shared_ptr<View> child) override { added.push_back(std::move(child)); }
    std::vector<std::shared_ptr<View>> added;
};

class DistanceTrackingTest : public ::testing::Test {
protected:
    DistanceTrackingTest() {
        auto made = std::make_unique<testing::ScriptedFaceTracking>();
        auto& faceTracking = *made;
        platform->setFaceTracking(std::move(made));
        tracking = DistanceTracking::make(*platform, store);
        scene = faceTracking.views().front().lock();
    }

    std::vector<ValueMap> storedSamples() {
        const auto document = decodeTrackingDataWrapper(store.loadTrackingData().value().view(), platform->jsonCoder());
        std::vector<ValueMap> samples;
        for (const TrackingData& sample : document->trackingData) {
            EXPECT_EQ(sample.type, "distance");
            samples.push_back(sample.data);
        }
        return samples;
    }

    test::TestPlatform platform;
    PersistenceController store{*platform};
    std::shared_ptr<DistanceTracking> tracking;
    std::shared_ptr<testing::ScriptedSceneView> scene;
    std::shared_ptr<CountingView> hostView = std::make_shared<CountingView>();
};

}  // namespace

TEST_F(DistanceTrackingTest, SetsUpASceneThatRendersNoMoreThanItMust) {
    EXPECT_TRUE(scene->settings().showsStatistics);
    EXPECT_EQ(scene->settings().preferredFramesPerSecond, 1);
    EXPECT_FALSE(scene->settings().rendersContinuously);
    EXPECT_EQ(scene->settings().background, platform::SceneBackground::clear);
    EXPECT_FALSE(scene->isRunning());
}

TEST_F(DistanceTrackingTest, StartsEachRunAfreshAndAttachesTheViewLater) {
    tracking->beginMeasurement(hostView);
    tracking->beginMeasurement(hostView);
    ASSERT_EQ(scene->runs().size(), 2U);
    for (const auto& run : scene->runs()) {
        EXPECT_EQ(run.options, (platform::RunOptions{.resetTracking = true, .removeExistingAnchors = true}));
        EXPECT_EQ(run.configuration.maximumNumberOfTrackedFaces, 1);
        EXPECT_FALSE(run.configuration.lightEstimationEnabled);
    }
    EXPECT_TRUE(hostView->added.empty()) << "the run comes before the view";
    platform.dispatchQueues->runMain();
    EXPECT_THAT(hostView->added, ::testing::ElementsAre(scene, scene));
}

TEST_F(DistanceTrackingTest, StoresBothDistancesInCentimetresAndPauses) {
    struct Case {
        Transform leftEye;
        Transform rightEye;
        ValueMap sample;
    };
    for (const Case& c :
         {Case{at(0.03F, 0.04F, 0),
               at(0, 0, -0.5F),
               {{"leftEyeDistanceFromCamera", 50.0}, {"rightEyeDistanceFromCamera", 5.0}}},
          Case{at(0, 0, -0.3F),
               at(0, 0, 0),
               {{"leftEyeDistanceFromCamera", 0.0}, {"rightEyeDistanceFromCamera", 30.000001907348633}}}}) {
        store.deleteAllTrackingData();
        tracking->beginMeasurement(hostView);
        const Anchor face = faceWith(c.leftEye, c.rightEye);
        const auto node = scene->addAnchor(face);
        ASSERT_TRUE(node);
        std::jthread([&] { scene->updateAnchor(*node, face); }).join();  // the rendering thread
        EXPECT_THAT(storedSamples(), ::testing::ElementsAre(c.sample));
        EXPECT_FALSE(scene->isRunning());
        scene->updateAnchor(*node, face);
        EXPECT_EQ(store.countTrackingData(), 1) << "a paused run measures nothing more";
    }
}

TEST_F(DistanceTrackingTest, MeasuresFromTheWorldsOriginThroughTheAnchor) {
    tracking->beginMeasurement(hostView);
    const Anchor face = faceWith(at(0, 0, 0), at(0, 0.3F, 0), at(0, 0, -0.4F));
    const auto first = scene->addAnchor(face);
    tracking->beginMeasurement(hostView);
    const auto second = scene->addAnchor(face);
    EXPECT_NE(first, second) << "a new anchor has a new node";
    scene->updateAnchor(*second, face);
    const auto samples = storedSamples();
    ASSERT_EQ(samples.size(), 1U);
    EXPECT_NEAR(samples[0].at("leftEyeDistanceFromCamera"), 50, 1e-4);
    EXPECT_NEAR(samples[0].at("rightEyeDistanceFromCamera"), 40, 1e-4);
}

TEST_F(DistanceTrackingTest, IgnoresAnchorsThatAreNoFace) {
    tracking->beginMeasurement(hostView);
    const Anchor wall{.transform = at(0, 0, -2), .face = std::nullopt};
    EXPECT_EQ(scene->addAnchor(wall), nullptr);
    scene->updateAnchor(*platform->sceneGraph().makeNode(), wall);
    EXPECT_EQ(store.countTrackingData(), 0);
    EXPECT_TRUE(scene->isRunning());
}

TEST_F(DistanceTrackingTest, EndsARunWithoutAFaceThreeSecondsAfterItsStart) {
    tracking->beginMeasurement(hostView);
    platform.dispatchQueues->advance(2999ms);
    EXPECT_TRUE(scene->isRunning());
    platform.dispatchQueues->advance(1ms);
    EXPECT_FALSE(scene->isRunning());
    EXPECT_EQ(store.countTrackingData(), 0);
}

TEST_F(DistanceTrackingTest, AnEarlierRunsPauseEndsALaterRun) {
    tracking->beginMeasurement(hostView);
    platform.dispatchQueues->advance(2s);
    tracking->beginMeasurement(hostView);
    platform.dispatchQueues->advance(1s);
    EXPECT_FALSE(scene->isRunning()) << "a pause is never cancelled";
}

TEST_F(DistanceTrackingTest, LivesAsLongAsAPauseWaits) {
    tracking->beginMeasurement(hostView);
    const std::weak_ptr<DistanceTracking> weak = tracking;
    tracking.reset();
    platform.dispatchQueues->runMain();
    EXPECT_FALSE(weak.expired());
    EXPECT_TRUE(scene->isRunning());
    platform.dispatchQueues->advance(3s);
    EXPECT_TRUE(weak.expired());
    EXPECT_FALSE(scene->isRunning());
}

}  // namespace tarvex
