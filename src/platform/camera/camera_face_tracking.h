#pragma once

#include <memory>

#include "platform/camera/capture/camera_capture.h"
#include "tarvex/camera.h"
#include "tarvex/platform/diagnostics.h"
#include "tarvex/platform/face_tracking.h"

namespace tarvex::camera {

/// Face tracking through the camera that the options name. Thread-safe.
class CameraFaceTracking final : public platform::FaceTracking {
public:
    explicit CameraFaceTracking(Options options);
    /// Waits for the camera's thread to end its current look and report. Not called on that thread.
    ~CameraFaceTracking() override;
    CameraFaceTracking(const CameraFaceTracking&) = delete;
    CameraFaceTracking& operator=(const CameraFaceTracking&) = delete;

    /// Checks that camera and networks exist; opens and loads neither. One warning names the reason of a refusal.
    bool isSupported() const override;
    int supportedNumberOfTrackedFaces() const override { return 1; }
    [[nodiscard]] std::shared_ptr<platform::FaceTrackingSceneView> makeSceneView() override;

private:
    std::shared_ptr<const Options> options_;
    std::shared_ptr<CameraCapture> capture_;
    mutable platform::WarningOnce whyNot_;
};

}  // namespace tarvex::camera
