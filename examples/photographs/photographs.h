#pragma once

#include <tarvex/camera.h>

#include <filesystem>
#include <optional>

namespace photographs {

/// The machine's camera; where none can be used, the photographs of faces in the directory, which is then said on
/// standard output.
tarvex::camera::Options cameraOrPhotographs(const std::optional<std::filesystem::path>& directory);

}  // namespace photographs
