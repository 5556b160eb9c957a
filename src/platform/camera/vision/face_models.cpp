#include "platform/camera/vision/face_models.h"

#include <algorithm>
#include <array>
#include <system_error>
#include <utility>

#include "platform/glib/sha256.h"
#include "platform/shared/regular_file.h"

namespace tarvex::camera {

bool faceModelsArePresent(const std::filesystem::path& directory) {
    return std::ranges::all_of(std::array{detectorModel, meshModel}, [&](const FaceModelFile& file) {
        std::error_code failure;
        return std::filesystem::is_regular_file(directory / file.name, failure);
    });
}

std::expected<std::string, std::string> readFaceModel(const std::filesystem::path& directory,
                                                      const FaceModelFile& file) {
    constexpr std::size_t largestModel = 64 << 20;
    const std::filesystem::path path = directory / file.name;
    auto bytes = platform::contentsOfRegularFile(path, largestModel);
    if (!bytes) return std::unexpected(path.string() + " cannot be read");
    if (platform::sha256Of(*bytes) != file.sha256)
        return std::unexpected(path.string() + " is not the model that this version was made for");
    return *std::move(bytes);
}

}  // namespace tarvex::camera
