#include "photographs.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

namespace photographs {

namespace {

using Paths = std::vector<std::filesystem::path>;

Paths entriesOf(const std::filesystem::path& directory) {
    Paths paths;
    std::error_code failure;
    for (const auto& entry : std::filesystem::directory_iterator(directory, failure))
        paths.push_back(entry.path());
    std::ranges::sort(paths);
    return paths;
}

/// The library's own answer; it logs why not.
bool canUseCamera() {
    tarvex::platform::Platform scratch;
    tarvex::camera::addTo(scratch);
    return scratch.faceTracking().isSupported();
}

}  // namespace

tarvex::camera::Options cameraOrPhotographs(const std::optional<std::filesystem::path>& directory) {
    if (!directory || canUseCamera()) return {};
    std::cout << "In the camera's place, photographs of real faces are shown to the tracker,\n"
                 "another one for each measurement.\n"
              << std::flush;
    Paths paths = entriesOf(*directory);
    std::erase_if(paths, [](const auto& path) { return path.extension() != ".jpg"; });
    return {.source = tarvex::camera::Pictures{.paths = std::move(paths)}};
}

}  // namespace photographs
