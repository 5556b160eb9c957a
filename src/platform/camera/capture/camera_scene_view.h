#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/camera/capture/camera_capture.h"
#include "platform/face_tracking.h"

namespace tarvex::camera {

/// A view that sees the camera's face while its session runs, and draws nothing. The capture's thread is its rendering
/// thread.
///
/// The camera does not move against itself, so the world's origin is the camera in every run.
class CameraSceneView final : public platform::FaceTrackingSceneView,
                              private platform::FaceTrackingSession,
                              private FaceObserver,
                              public std::enable_shared_from_this<CameraSceneView> {
public:
    explicit CameraSceneView(std::weak_ptr<CameraCapture> capture);
    ~CameraSceneView() override;

    void addSubview(std::shared_ptr<View> child) override;
    void setDelegate(std::weak_ptr<platform::FaceTrackingDelegate> delegate) override;
    platform::FaceTrackingSession& session() override { return *this; }

    void setShowsStatistics(bool /*shows*/) override {}
    void setPreferredFramesPerSecond(int framesPerSecond) override { framesPerSecond_ = framesPerSecond; }
    void setRendersContinuously(bool /*continuously*/) override {}
    void setAntialiasingMode(platform::AntialiasingMode /*mode*/) override {}
    void setSceneBackground(platform::SceneBackground /*background*/) override {}

private:
    void run(const platform::FaceTrackingConfiguration& configuration, platform::RunOptions options) override;
    void pause() override;

    bool isDue() override;
    void faceFound(const platform::Anchor& anchor) override;

    const std::weak_ptr<CameraCapture> capture_;
    const std::shared_ptr<View> children_ = makeHeadlessView();
    std::mutex mutex_;
    std::weak_ptr<platform::FaceTrackingDelegate> delegate_;
    std::atomic<int> framesPerSecond_ = 60;
    std::atomic<bool> anchorsRemoved_ = false;

    // The rendering thread's own.
    std::shared_ptr<platform::SceneNode> node_;  ///< stands for the face
    std::optional<std::chrono::steady_clock::time_point> lastUpdate_;
};

}  // namespace tarvex::camera
