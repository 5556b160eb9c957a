#pragma once

#include <expected>
#include <filesystem>
#include <string>

#include "platform/camera/named_source.h"
#include "tarvex/camera.h"

namespace tarvex::camera {

/// One sentence when none of the devices that are meant may be opened; none is opened.
std::expected<void, std::string> checkDevices(const CameraDevice& device);

/// The name that the camera at the node gives itself, which may be empty. One sentence when it is none.
std::expected<std::string, std::string> nameOfDevice(const std::filesystem::path& node);

/// Opens the first of the devices that are meant which takes pictures.
std::expected<NamedSource, std::string> openDevice(const CameraDevice& device);

}  // namespace tarvex::camera
