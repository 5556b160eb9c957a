#include <utility>

#include "tarvex/testing/scripted_capture_device.h"
#include "tarvex/testing/scripted_face_tracking.h"

namespace tarvex::testing {

ScriptedCaptureDevice::ScriptedCaptureDevice(std::deque<bool> answers) : answers_(std::move(answers)) {}

void ScriptedCaptureDevice::requestAccessForVideo(std::function<void(bool)> handler) {
    const std::scoped_lock lock(mutex_);
    ++requestCount_;
    waiting_.push_back(std::move(handler));
}

bool ScriptedCaptureDevice::isRequestInProgress() const {
    const std::scoped_lock lock(mutex_);
    return !waiting_.empty();
}

std::size_t ScriptedCaptureDevice::requestCount() const {
    const std::scoped_lock lock(mutex_);
    return requestCount_;
}

bool ScriptedCaptureDevice::answerNext() {
    std::unique_lock lock(mutex_);
    if (waiting_.empty()) return false;
    const auto handler = std::move(waiting_.front());
    waiting_.pop_front();
    const bool granted = !answers_.empty() && answers_.front();
    if (!answers_.empty()) answers_.pop_front();
    lock.unlock();
    handler(granted);
    return true;
}

ScriptedSceneView::ScriptedSceneView() = default;
ScriptedSceneView::~ScriptedSceneView() = default;

std::shared_ptr<platform::SceneNode> ScriptedSceneView::addAnchor(const platform::Anchor& anchor) const {
    const auto delegate = settings_.delegate.lock();
    if (!isRunning() || !delegate) return nullptr;
    auto node = delegate->nodeForAnchor(anchor);
    if (node) node->setTransform(anchor.transform);
    return node;
}

void ScriptedSceneView::updateAnchor(platform::SceneNode& node, const platform::Anchor& anchor) const {
    const auto delegate = settings_.delegate.lock();
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

template <typename Value>
void ScriptedSceneView::set(std::string_view name, Value Settings::* member, Value value) {
    settings_.*member = std::move(value);
    settings_.order.push_back(name);
}

void ScriptedSceneView::setDelegate(std::weak_ptr<platform::FaceTrackingDelegate> delegate) {
    set("delegate", &Settings::delegate, std::move(delegate));
}

void ScriptedSceneView::setDelegate(std::weak_ptr<platform::FaceTrackingSessionDelegate> delegate) {
    set("sessionDelegate", &Settings::sessionDelegate, std::move(delegate));
}

void ScriptedSceneView::setShowsStatistics(bool shows) {
    set("showsStatistics", &Settings::showsStatistics, shows);
}

void ScriptedSceneView::setPreferredFramesPerSecond(int framesPerSecond) {
    set("preferredFramesPerSecond", &Settings::preferredFramesPerSecond, framesPerSecond);
}

void ScriptedSceneView::setRendersContinuously(bool continuously) {
    set("rendersContinuously", &Settings::rendersContinuously, continuously);
}

void ScriptedSceneView::setAntialiasingMode(platform::AntialiasingMode mode) {
    set("antialiasing", &Settings::antialiasing, mode);
}

void ScriptedSceneView::setSceneBackground(platform::SceneBackground background) {
    set("background", &Settings::background, background);
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
