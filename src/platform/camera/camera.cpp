#include "tarvex/camera.h"

#include <dlfcn.h>

#include <memory>
#include <system_error>
#include <utility>

#include "platform/camera/camera_face_tracking.h"

namespace tarvex::camera {
namespace {

constexpr char insideThisLibrary = 0;

}  // namespace

std::filesystem::path modelDirectoryOf(const Options& options) {
    if (options.modelDirectory) return *options.modelDirectory;
    Dl_info information{};
    if (::dladdr(&insideThisLibrary, &information) == 0) return {};
    std::error_code failure;
    const auto library = std::filesystem::canonical(information.dli_fname, failure);
    // lib/libtarvex_camera.so, or lib/<architecture>/libtarvex_camera.so
    for (const auto& prefix :
         {library.parent_path().parent_path(), library.parent_path().parent_path().parent_path()}) {
        auto directory = prefix / "share" / "tarvex" / "face_models";
        if (std::filesystem::is_directory(directory, failure)) return directory;
    }
    return library.parent_path().parent_path() / "share" / "tarvex" / "face_models";
}

void addTo(platform::Platform& platform, Options options) {
    platform.setFaceTracking(std::make_unique<CameraFaceTracking>(std::move(options)));
}

}  // namespace tarvex::camera
