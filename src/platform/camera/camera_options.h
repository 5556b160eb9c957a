#pragma once

#include <expected>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/camera/vision/face_finder.h"
#include "platform/glib/calibration_file.h"
#include "tarvex/camera.h"

namespace tarvex::camera {

/// One sentence when the options allow no measurement, as far as that shows without opening a camera.
std::expected<void, std::string> checkOptions(const Options& options);

/// The directory of the networks: the one that the options name, else share/tarvex/face_models beside the library.
std::filesystem::path modelDirectoryOf(const Options& options);

/// The geometry of lens and eyes that the options name.
FaceGeometry geometryOf(const Options& options);

/// A finder that multiplies every distance by the factor that the options name. Where they name none, and leave the
/// field of view and the eye spacing that a calibration assumes, by the one that is stored for the camera of that name
/// (none for a camera whose name is not known) and the frame's size.
FaceFinder calibratedFinder(FaceFinder finder, const Options& options, std::optional<std::string> camera,
                            platform::CalibrationFile file);

}  // namespace tarvex::camera
