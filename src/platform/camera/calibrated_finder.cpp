#include "platform/camera/calibrated_finder.h"

#include <map>
#include <utility>

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

bool assumesWhatACalibrationDoes(const Options& options) {
    const Options defaults;
    return options.horizontalFieldOfView == defaults.horizontalFieldOfView &&
           options.interpupillaryDistance == defaults.interpupillaryDistance;
}

}  // namespace

FaceGeometry geometryOf(const Options& options) {
    return {.horizontalFieldOfView = options.horizontalFieldOfView,
            .interpupillaryDistance = options.interpupillaryDistance};
}

FaceFinder calibratedFinder(FaceFinder finder, const Options& options, std::optional<std::string> camera,
                            CalibrationFile file) {
    if (options.calibrationFactor) {
        return [finder = std::move(finder), factor = *options.calibrationFactor](const Frame& frame) {
            return scaled(finder(frame), factor);
        };
    }
    // A measured factor holds what the assumed lens and eyes were off by: a host that names its own would have it
    // twice.
    if (!camera || !assumesWhatACalibrationDoes(options)) return finder;
    return [finder = std::move(finder), camera = *std::move(camera), file = std::move(file),
            stored = std::map<std::pair<int, int>, double>()](const Frame& frame) mutable {
        const std::pair size(frame.width, frame.height);
        if (!stored.contains(size)) stored[size] = file.factor(camera, frame.width, frame.height).value_or(1);
        return scaled(finder(frame), stored[size]);
    };
}

}  // namespace tarvex::camera
