#pragma once

#include <functional>
#include <optional>

#include "platform/camera/vision/frame.h"
#include "tarvex/platform/face_tracking.h"

namespace tarvex::camera {

/// Finds the nearest face in a frame and places it in space: metres from the camera, x to the right, y up, z against
/// the viewing direction. No pixel of the frame is kept. Used by one thread at a time.
using FaceFinder = std::function<std::optional<platform::Anchor>(const Frame&)>;

}  // namespace tarvex::camera
