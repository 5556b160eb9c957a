#pragma once

#include <array>
#include <filesystem>

namespace tarvex::platform {

/// The file that the process runs, also when it has been replaced since.
std::filesystem::path executablePath();

/// Where the host's Info.plist may lie: the directory of `executable`, then ../share/<its name>/ beside it.
std::array<std::filesystem::path, 2> bundleDirectoriesOf(const std::filesystem::path& executable);

}  // namespace tarvex::platform
