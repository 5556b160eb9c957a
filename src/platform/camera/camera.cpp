#include "tarvex/camera.h"

#include <memory>
#include <utility>

#include "platform/camera/camera_face_tracking.h"

namespace tarvex::camera {

void addTo(platform::Platform& platform, Options options) {
    platform.setFaceTracking(std::make_unique<CameraFaceTracking>(std::move(options)));
}

}  // namespace tarvex::camera
