#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <variant>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/platform.h"

namespace tarvex::camera {

/// A camera of this machine, by its device node; without one, the first that takes pictures.
struct CameraDevice {
    std::optional<std::filesystem::path> node = std::nullopt;
};

/// A camera that the desktop portal handed over. Needs GStreamer's PipeWire plugin. Which camera it is is not known, so
/// no stored calibration is used.
struct PortalCamera {
    /// Of the PipeWire remote; the host keeps it open while the library is used. Without one there is no camera.
    std::optional<int> fileDescriptor = std::nullopt;
    std::uint32_t node = 0;
};

/// A video file in a camera's place, for tests and demonstrations: each run begins at its first frame, and the frames
/// come as fast as they are looked at.
struct VideoFile {
    std::filesystem::path path;
};

/// Pictures in a camera's place, for tests and demonstrations: each run sees one of them, the next run the next one.
struct Pictures {
    std::vector<std::filesystem::path> paths;
};

/// Frames may be 16 to 4096 pixels wide and high; a source of others ends with a line on standard error that says so.
using Source = std::variant<CameraDevice, PortalCamera, VideoFile, Pictures>;

/// What turns a camera's pixels into centimetres, and where the pixels come from.
///
/// A host that calibrates nothing gets the defaults: the assumed field of view and eye spacing each shift every
/// distance by the same part, some percent to either side. `tarvex-calibrate` measures a factor that removes both.
struct Options {
    Source source = CameraDevice{};
    double horizontalFieldOfView = 63;      ///< degrees, over the width of the frame
    double interpupillaryDistance = 0.063;  ///< metres between the centres of the user's eyes
    /// Multiplies every distance. Default: what `tarvex-calibrate` stored for the camera and its frame size, else 1. A
    /// stored factor holds for the default field of view and eye spacing: where either is set, it is not used.
    std::optional<double> calibrationFactor = std::nullopt;
    /// Where the two networks lie. Default: share/tarvex/face_models beside the library.
    std::optional<std::filesystem::path> modelDirectory = std::nullopt;
};

/// Installs face tracking into a platform that is not used yet; call it before `Platform::install`.
///
/// Face tracking is then supported where the source and the networks are there; where they are not, one line on
/// standard error says so. The camera is open only while a measurement runs. No frame is written, sent, or kept after
/// the look at it.
TARVEX_EXPORT void addTo(platform::Platform& platform, Options options = {});

}  // namespace tarvex::camera
