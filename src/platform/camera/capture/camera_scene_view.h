#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "platform/camera/capture/camera_capture.h"
#include "tarvex/platform/face_tracking.h"

namespace tarvex::camera {

/// A session that sees the camera's face while it runs. The capture's thread is its rendering thread.
///
/// Separate from its view, so that the capture's thread, which shares ownership of its observer, never holds the view.
/// The camera does not move against itself, so the world's origin is the camera in every run.
class CameraFaceSession final : public platform::FaceTrackingSession,
                                public FaceObserver,
                                public std::enable_shared_from_this<CameraFaceSession> {
public:
    explicit CameraFaceSession(std::weak_ptr<CameraCapture> capture) : capture_(std::move(capture)) {}

    /// The delegate of the session's view.
    void setViewDelegate(std::weak_ptr<platform::FaceTrackingDelegate> delegate);
    void setFramesPerSecond(int framesPerSecond) { framesPerSecond_ = framesPerSecond; }

    void run(const platform::FaceTrackingConfiguration& configuration, platform::RunOptions options) override;
    void pause() override;

    bool isDue() override;
    void faceFound(const platform::Anchor& anchor) override;

private:
    const std::weak_ptr<CameraCapture> capture_;
    std::mutex mutex_;
    std::weak_ptr<platform::FaceTrackingDelegate> delegate_;
    std::atomic<int> framesPerSecond_ = 60;
    std::atomic<bool> anchorsRemoved_ = false;

    // The rendering thread's own.
    std::shared_ptr<platform::SceneNode> node_;  ///< stands for the face
    std::optional<std::chrono::steady_clock::time_point> lastUpdate_;
};

/// The view of such a session; it draws nothing.
class CameraSceneView final : public platform::FaceTrackingSceneView {
public:
    explicit CameraSceneView(std::weak_ptr<CameraCapture> capture)
        : session_(std::make_shared<CameraFaceSession>(std::move(capture))) {}
    ~CameraSceneView() override { session_->pause(); }
    CameraSceneView(const CameraSceneView&) = delete;
    CameraSceneView& operator=(const CameraSceneView&) = delete;

    void setDelegate(std::weak_ptr<platform::FaceTrackingDelegate> delegate) override {
        session_->setViewDelegate(std::move(delegate));
    }
    platform::FaceTrackingSession& session() override { return *session_; }

    void setShowsStatistics(bool /*shows*/) override {}
    void setPreferredFramesPerSecond(int framesPerSecond) override { session_->setFramesPerSecond(framesPerSecond); }
    void setRendersContinuously(bool /*continuously*/) override {}
    void setAntialiasingMode(platform::AntialiasingMode /*mode*/) override {}
    void setSceneBackground(platform::SceneBackground /*background*/) override {}

private:
    const std::shared_ptr<CameraFaceSession> session_;
};

}  // namespace tarvex::camera
