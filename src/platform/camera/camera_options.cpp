#include "platform/camera/camera_options.h"

#include <dlfcn.h>

#include <map>
#include <system_error>
#include <utility>

#include "platform/camera/camera_source.h"
#include "platform/camera/vision/face_models.h"

namespace tarvex::camera {
namespace {

using platform::Anchor;
using platform::Transform;

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

void scaleTranslation(Transform& transform, double factor) {
    for (std::size_t place = 12; place < 15; ++place)
        transform.columns.at(place) = static_cast<float>(transform.columns.at(place) * factor);
}

/// The anchor with every distance multiplied, those of the eyes within the face included.
std::optional<Anchor> scaled(std::optional<Anchor> anchor, double factor) {
    if (!anchor) return std::nullopt;
    scaleTranslation(anchor->transform, factor);
    if (anchor->face) {
        scaleTranslation(anchor->face->leftEyeTransform, factor);
        scaleTranslation(anchor->face->rightEyeTransform, factor);
    }
    return anchor;
}

bool leavesTheDefaultGeometry(const Options& options) {
    const Options defaults;
    return options.horizontalFieldOfView == defaults.horizontalFieldOfView &&
           options.interpupillaryDistance == defaults.interpupillaryDistance;
}

}  // namespace

std::expected<void, std::string> checkOptions(const Options& options) {
    const bool possible = options.horizontalFieldOfView > 1 && options.horizontalFieldOfView < 179 &&
                          options.interpupillaryDistance > 0.01 && options.interpupillaryDistance < 0.2 &&
                          (!options.calibrationFactor || platform::canBeFactor(*options.calibrationFactor));
    if (!possible)
        return std::unexpected(
            "field of view, eye spacing or calibration factor is out of range (see tarvex/camera.h)");
    if (auto source = CameraSource(options.source).check(); !source) return source;
    const auto models = modelDirectoryOf(options);
    if (faceModelsArePresent(models)) return {};
    return std::unexpected("the face models are not in " + models.string());
}

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

FaceGeometry geometryOf(const Options& options) {
    return {.horizontalFieldOfView = options.horizontalFieldOfView,
            .interpupillaryDistance = options.interpupillaryDistance};
}

FaceFinder calibratedFinder(FaceFinder finder, const Options& options, std::optional<std::string> camera,
                            platform::CalibrationFile file) {
    if (options.calibrationFactor) {
        return [finder = std::move(finder), factor = *options.calibrationFactor](const Frame& frame) {
            return scaled(finder(frame), factor);
        };
    }
    // A measured factor corrects the default lens and eyes: a host that names its own would be corrected twice.
    if (!camera || !leavesTheDefaultGeometry(options)) return finder;
    return [finder = std::move(finder), camera = *std::move(camera), file = std::move(file),
            stored = std::map<std::pair<int, int>, double>()](const Frame& frame) mutable {
        const std::pair size(frame.width, frame.height);
        if (!stored.contains(size)) stored[size] = file.factor(camera, frame.width, frame.height).value_or(1);
        return scaled(finder(frame), stored[size]);
    };
}

}  // namespace tarvex::camera
