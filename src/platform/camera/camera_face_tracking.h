#pragma once

#include <atomic>
#include <filesystem>
#include <memory>

#include "platform/camera/capture/camera_capture.h"
#include "tarvex/camera.h"
#include "tarvex/platform/face_tracking.h"

namespace tarvex::camera {

/// Face tracking through the camera that the options name.
class CameraFaceTracking final : public platform::FaceTracking {
public:
    explicit CameraFaceTracking(Options options);
    /// Waits for the look that the camera's thread is in, and for what it reports. Not on that thread.
    ~CameraFaceTracking() override;
    CameraFaceTracking(const CameraFaceTracking&) = delete;
    CameraFaceTracking& operator=(const CameraFaceTracking&) = delete;

    /// Looks whether camera and networks are there; it opens and loads neither. Says why not, once, on standard error.
    bool isSupported() const override;
    int supportedNumberOfTrackedFaces() const override { return 1; }
    [[nodiscard]] std::shared_ptr<platform::FaceTrackingSceneView> makeSceneView() override;

private:
    std::shared_ptr<const Options> options_;
    std::shared_ptr<CameraCapture> capture_;
    mutable std::atomic<bool> saidWhyNot_ = false;
};

/// Where the networks lie unless the options say it: beside the library.
std::filesystem::path modelDirectoryOf(const Options& options);

}  // namespace tarvex::camera
