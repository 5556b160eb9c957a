#include "sensors/distance_tracking.h"

#include <chrono>
#include <cmath>

namespace tarvex {

namespace {

using platform::Position;

constexpr std::chrono::seconds longestRun{3};
constexpr platform::RunOptions startAfresh{.resetTracking = true, .removeExistingAnchors = true};

float centimetresFromOrigin(const Position& metres) {
    const float distance = std::sqrt(metres.x * metres.x + metres.y * metres.y + metres.z * metres.z);
    return distance * 100.0F;
}

}  // namespace

std::shared_ptr<DistanceTracking> DistanceTracking::make(platform::Platform& platform, PersistenceController& store) {
    const auto endOnMainThread = [&queues = platform.dispatchQueues()](DistanceTracking* tracking) {
        queues.mainAsync([ended = std::shared_ptr<DistanceTracking>(tracking)] {});
    };
    std::shared_ptr<DistanceTracking> tracking(new DistanceTracking(platform, store), endOnMainThread);
    tracking->setUpSceneView();
    return tracking;
}

DistanceTracking::DistanceTracking(platform::Platform& platform, PersistenceController& store)
    : platform_(platform), store_(store), sceneView_(platform.faceTracking().makeSceneView()) {}

void DistanceTracking::setUpSceneView() {
    sceneView_->setDelegate(weak_from_this());
    sceneView_->session().setDelegate(weak_from_this());
    sceneView_->setShowsStatistics(true);
    sceneView_->setPreferredFramesPerSecond(1);
    sceneView_->setRendersContinuously(false);
    sceneView_->setAntialiasingMode(platform::AntialiasingMode::none);
    sceneView_->setSceneBackground(platform::SceneBackground::clear);
}

void DistanceTracking::beginMeasurement(const std::shared_ptr<View>& view) {
    platform::DispatchQueues& queues = platform_.dispatchQueues();
    queues.mainAsync([self = shared_from_this(), view] { view->addSubview(self->sceneView_); });
    sceneView_->session().run(configuration(), startAfresh);
    queues.backgroundAfter(longestRun, [self = shared_from_this()] { self->sceneView_->session().pause(); });
}

std::shared_ptr<platform::SceneNode> DistanceTracking::nodeForAnchor(const platform::Anchor& anchor) {
    if (!anchor.face) return nullptr;
    contentNode_ = std::make_shared<platform::SceneNode>();
    contentNode_->addChildNode(rightEyeNode());
    contentNode_->addChildNode(leftEyeNode());
    return contentNode_;
}

void DistanceTracking::didUpdateNode(platform::SceneNode& /*node*/, const platform::Anchor& anchor) {
    if (!anchor.face) return;
    rightEyeNode()->setTransform(anchor.face->rightEyeTransform);
    leftEyeNode()->setTransform(anchor.face->leftEyeTransform);
    recordEyeDistances();
}

void DistanceTracking::recordEyeDistances() {
    const Position right = rightEyeNode()->worldPosition();
    const Position left = leftEyeNode()->worldPosition();
    // The pairing is crosswise, as the format of a distance sample has it.
    store_.saveTrackingData(DataReader::distance(std::nullopt),
                            {{"leftEyeDistanceFromCamera", centimetresFromOrigin(right)},
                             {"rightEyeDistanceFromCamera", centimetresFromOrigin(left)}});
    sceneView_->session().pause();
}

const std::shared_ptr<platform::SceneNode>& DistanceTracking::rightEyeNode() {
    if (!rightEyeNode_) rightEyeNode_ = std::make_shared<platform::SceneNode>();
    return rightEyeNode_;
}

const std::shared_ptr<platform::SceneNode>& DistanceTracking::leftEyeNode() {
    if (!leftEyeNode_) leftEyeNode_ = std::make_shared<platform::SceneNode>();
    return leftEyeNode_;
}

const platform::FaceTrackingConfiguration& DistanceTracking::configuration() {
    if (!configuration_) {
        configuration_ = platform::FaceTrackingConfiguration{
            .maximumNumberOfTrackedFaces = platform_.faceTracking().supportedNumberOfTrackedFaces(),
            .lightEstimationEnabled = false};
    }
    return *configuration_;
}

}  // namespace tarvex
