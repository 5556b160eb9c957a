#include "testing/scripted_face_tracking.h"

#include <utility>

namespace tarvex::testing {

ScriptedSceneView::ScriptedSceneView() = default;
ScriptedSceneView::~ScriptedSceneView() = default;

std::shared_ptr<platform::SceneNode> ScriptedSceneView::addAnchor(const platform::Anchor& anchor) {
    const auto delegate = delegate_.lock();
    if (!isRunning() || !delegate) return nullptr;
    auto node = delegate->nodeForAnchor(anchor);
    if (node) node->setTransform(anchor.transform);
    return node;
}

void ScriptedSceneView::updateAnchor(platform::SceneNode& node, const platform::Anchor& anchor) {
    const auto delegate = delegate_.lock();
    if (!isRunning() || !delegate) return;
    node.setTransform(anchor.transform);
    delegate->didUpdateNode(node, anchor);
}

std::vector<ScriptedSceneView::Run> ScriptedSceneView::runs() const {
    const std::lock_guard lock(mutex_);
    return runs_;
}

bool ScriptedSceneView::isRunning() const {
    const std::lock_guard lock(mutex_);
    return running_;
}

int ScriptedSceneView::pauses() const {
    const std::lock_guard lock(mutex_);
    return pauses_;
}

void ScriptedSceneView::addSubview(std::shared_ptr<View> child) {
    children_->addSubview(std::move(child));
}

void ScriptedSceneView::setDelegate(std::weak_ptr<platform::FaceTrackingDelegate> delegate) {
    delegate_ = std::move(delegate);
}

void ScriptedSceneView::run(const platform::FaceTrackingConfiguration& configuration, platform::RunOptions options) {
    const std::lock_guard lock(mutex_);
    runs_.push_back({.configuration = configuration, .options = options});
    running_ = true;
}

void ScriptedSceneView::pause() {
    const std::lock_guard lock(mutex_);
    running_ = false;
    ++pauses_;
}

ScriptedFaceTracking::ScriptedFaceTracking(bool supported, int supportedFaces)
    : supported_(supported), supportedFaces_(supportedFaces) {}

ScriptedFaceTracking::~ScriptedFaceTracking() = default;

std::shared_ptr<platform::FaceTrackingSceneView> ScriptedFaceTracking::makeSceneView() {
    auto view = std::make_shared<ScriptedSceneView>();
    views_.push_back(view);
    return view;
}

}  // namespace tarvex::testing
