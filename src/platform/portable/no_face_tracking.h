#pragma once

#include <memory>

#include "tarvex/platform/face_tracking.h"

namespace tarvex::platform {

/// The face tracking of a host without a face-tracking module: not supported.
class NoFaceTracking final : public FaceTracking {
public:
    bool isSupported() const override { return false; }
    int supportedNumberOfTrackedFaces() const override { return 0; }
    std::shared_ptr<FaceTrackingSceneView> makeSceneView() override { return nullptr; }
};

}  // namespace tarvex::platform
