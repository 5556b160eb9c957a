#include "platform/camera/vision/face_models.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <fstream>
#include <memory>
#include <string_view>
#include <system_error>

namespace tarvex::camera {
namespace {

constexpr std::uintmax_t largestModel = 64 << 20;

struct GFree {
    void operator()(char* text) const { g_free(text); }
};

std::string sha256Of(const std::vector<std::byte>& bytes) {
    const std::unique_ptr<char, GFree> sum(
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size()));
    return sum.get();
}

}  // namespace

bool faceModelsArePresent(const std::filesystem::path& directory) {
    return std::ranges::all_of(std::array{detectorModel, meshModel}, [&](const FaceModelFile& file) {
        std::error_code failure;
        return std::filesystem::is_regular_file(directory / file.name, failure);
    });
}

std::expected<std::vector<std::byte>, std::string> readFaceModel(const std::filesystem::path& directory,
                                                                 const FaceModelFile& file) {
    const std::filesystem::path path = directory / file.name;
    std::error_code failure;
    const auto size = std::filesystem::file_size(path, failure);
    if (failure || size > largestModel) return std::unexpected(path.string() + " cannot be read");
    std::vector<std::byte> bytes(size);
    std::ifstream stream(path, std::ios::binary);
    if (!stream.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(size)))
        return std::unexpected(path.string() + " cannot be read");
    if (sha256Of(bytes) != file.sha256)
        return std::unexpected(path.string() + " is not the model that this version was made for");
    return bytes;
}

}  // namespace tarvex::camera
