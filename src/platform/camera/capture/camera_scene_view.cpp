#include "platform/camera/capture/camera_scene_view.h"

#include <algorithm>
#include <utility>

namespace tarvex::camera {

void CameraFaceSession::setViewDelegate(std::weak_ptr<platform::FaceTrackingDelegate> delegate) {
    const std::lock_guard lock(mutex_);
    delegate_ = std::move(delegate);
}

void CameraFaceSession::run(const platform::FaceTrackingConfiguration& /*configuration*/,
                            platform::RunOptions options) {
    if (options.removeExistingAnchors) anchorsRemoved_ = true;
    if (const auto capture = capture_.lock()) capture->run(shared_from_this());
}

void CameraFaceSession::pause() {
    if (const auto capture = capture_.lock()) capture->pause(*this);
}

bool CameraFaceSession::isDue() {
    if (anchorsRemoved_ || !lastUpdate_) return true;
    const std::chrono::duration<double> interval(1.0 / std::max(framesPerSecond_.load(), 1));
    return std::chrono::steady_clock::now() - *lastUpdate_ >= interval;
}

void CameraFaceSession::faceFound(const platform::Anchor& anchor) {
    std::shared_ptr<platform::FaceTrackingDelegate> delegate;
    {
        const std::lock_guard lock(mutex_);
        delegate = delegate_.lock();
    }
    if (!delegate) return;
    if (anchorsRemoved_.exchange(false)) node_ = nullptr;
    lastUpdate_ = std::chrono::steady_clock::now();
    if (!node_) node_ = delegate->nodeForAnchor(anchor);
    if (!node_) return;
    node_->setTransform(anchor.transform);
    delegate->didUpdateNode(*node_, anchor);
}

}  // namespace tarvex::camera
