#include "platform/camera/camera_options.h"

#include <map>
#include <system_error>
#include <utility>

#include "platform/camera/camera_source.h"
#include "platform/camera/vision/face_models.h"
#include "platform/shared/own_file.h"

namespace tarvex::camera {
namespace {

using platform::Anchor;
using platform::Transform;

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
    const auto candidates = platform::resourceDirectoriesOf(platform::fileOfThisLibrary().parent_path());
    for (const auto& resources : candidates) {
        auto directory = resources / "face_models";
        if (std::filesystem::is_directory(directory, failure)) return directory;
    }
    return candidates.front() / "face_models";
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
