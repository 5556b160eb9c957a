#pragma once

#include <optional>
#include <string>

#include "platform/camera/calibration_file.h"
#include "platform/camera/vision/face_finder.h"
#include "platform/camera/vision/head_pose.h"
#include "tarvex/camera.h"

namespace tarvex::camera {

/// What the options say of the eyes and the lens.
FaceGeometry geometryOf(const Options& options);

/// A finder that multiplies every distance by the factor that the options name. Where they name none, and leave the
/// field of view and the eye spacing that a calibration assumes, by the one that is stored for the camera of that name
/// (none for a camera whose name is not known) and the frame's size.
FaceFinder calibratedFinder(FaceFinder finder, const Options& options, std::optional<std::string> camera,
                            CalibrationFile file);

}  // namespace tarvex::camera
