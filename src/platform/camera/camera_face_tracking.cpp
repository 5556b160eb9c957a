#include "platform/camera/camera_face_tracking.h"

#include <utility>

#include "platform/camera/camera_options.h"
#include "platform/camera/camera_source.h"
#include "platform/camera/capture/camera_scene_view.h"
#include "tarvex/platform/diagnostics.h"

namespace tarvex::camera {
namespace {

/// Opens source and networks for a run. The networks are loaded by the first run and kept; the calibration is read by
/// each.
class RunOpener {
public:
    explicit RunOpener(std::shared_ptr<const Options> options)
        : options_(std::move(options)), source_(options_->source) {}

    std::expected<OpenCapture, std::string> open() {
        if (!finder_) {
            auto finder = loadFaceFinder(modelDirectoryOf(*options_), geometryOf(*options_));
            if (!finder) return std::unexpected(finder.error());
            finder_ = std::move(*finder);
        }
        auto source = source_.open();
        if (!source) return std::unexpected(source.error());
        return OpenCapture{.source = std::move(source->frames),
                           .finder = calibratedFinder(finder_, *options_, source->camera, platform::CalibrationFile())};
    }

private:
    std::shared_ptr<const Options> options_;
    CameraSource source_;
    FaceFinder finder_;
};

}  // namespace

CameraFaceTracking::CameraFaceTracking(Options options)
    : options_(std::make_shared<const Options>(std::move(options))),
      capture_(std::make_shared<CameraCapture>(
          [opener = std::make_shared<RunOpener>(options_)] { return opener->open(); })) {}

// A view that pauses on the camera's thread holds the capture meanwhile: only an explicit end is sure to come from
// here.
CameraFaceTracking::~CameraFaceTracking() {
    capture_->finish();
}

bool CameraFaceTracking::isSupported() const {
    const auto usable = checkOptions(*options_);
    if (usable) return true;
    whyNot_.log("distances cannot be measured: " + usable.error());
    return false;
}

std::shared_ptr<platform::FaceTrackingSceneView> CameraFaceTracking::makeSceneView() {
    return std::make_shared<CameraSceneView>(capture_);
}

}  // namespace tarvex::camera
