#pragma once

#include <expected>
#include <filesystem>
#include <string>

namespace tarvex::camera {

/// The name that a camera gives itself; one sentence when the node is no camera or cannot be opened. Opens the node.
std::expected<std::string, std::string> cameraName(const std::filesystem::path& node);

}  // namespace tarvex::camera
