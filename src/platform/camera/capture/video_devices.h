#pragma once

#include <expected>
#include <filesystem>
#include <string>
#include <vector>

namespace tarvex::camera {

/// The device nodes that may be cameras, in the order of their numbers; none is opened.
std::vector<std::filesystem::path> videoDeviceNodes(const std::filesystem::path& deviceDirectory = "/dev");

/// Whether this process may open the node; it is not opened.
bool mayOpen(const std::filesystem::path& node);

/// The name that a camera gives itself, one sentence when the node is no camera or cannot be opened. Opens the node.
std::expected<std::string, std::string> cameraName(const std::filesystem::path& node);

}  // namespace tarvex::camera
