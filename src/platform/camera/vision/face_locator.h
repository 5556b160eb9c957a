#pragma once

#include <expected>
#include <filesystem>
#include <string>

#include "platform/camera/vision/face_finder.h"
#include "platform/camera/vision/head_pose.h"

namespace tarvex::camera {

/// The finder that reads its two networks from `modelDirectory`, or one sentence on why it cannot. Takes some tens of
/// milliseconds.
std::expected<FaceFinder, std::string> loadFaceFinder(const std::filesystem::path& modelDirectory,
                                                      const FaceGeometry& geometry);

}  // namespace tarvex::camera
