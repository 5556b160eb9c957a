#include "tarvex/camera.h"

#include <dlfcn.h>

#include <memory>
#include <system_error>
#include <utility>

#include "platform/camera/camera_face_tracking.h"

namespace tarvex::camera {
namespace {

constexpr char insideThisLibrary = 0;

/// The file that this code was loaded from: the library, or a program that holds it.
std::filesystem::path ownFile() {
    Dl_info information{};
    const bool known = ::dladdr(&insideThisLibrary, &information) != 0;
    const std::filesystem::path name = known ? information.dli_fname : "";
    std::error_code failure;
    if (name.has_parent_path()) {
        auto file = std::filesystem::canonical(name, failure);
        if (!failure) return file;
    }
    // Of a program, the loader knows only the words it was started with: without a path when the shell had searched.
    return std::filesystem::read_symlink("/proc/self/exe", failure);
}

}  // namespace

std::filesystem::path modelDirectoryOf(const Options& options) {
    if (options.modelDirectory) return *options.modelDirectory;
    std::error_code failure;
    const auto library = ownFile();
    // lib/libtarvex_camera.so, or lib/<architecture>/libtarvex_camera.so, or bin/<program>
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
