#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/platform.h"

namespace tarvex::camera {

/// The user's camera, which the library finds by itself: one that the desktop portal has, else one of PipeWire, else a
/// device of this machine. No dialog is opened: the portal's opens from the consent screen alone, and what was answered
/// there holds. A road without a camera leads to the next; one that is refused ends the search.
///
/// Of several, the one that looks at the user as far as the system says (libcamera's location, or a name with "front"
/// in it), else the first.
struct UserCamera {
    /// Takes the camera of this name, as `tarvex calibrate --list` shows it, and no other.
    std::optional<std::string> name = std::nullopt;
};

/// A camera of this machine, by its device node; without one, the first that takes pictures.
struct CameraDevice {
    std::optional<std::filesystem::path> node = std::nullopt;
};

/// A camera that the desktop portal handed over to the host itself.
struct PortalCamera {
    /// File descriptor of the PipeWire remote; the host keeps it open while the library is used. Without one, there is
    /// no camera.
    std::optional<int> fileDescriptor = std::nullopt;
    /// The id of the camera's node. Without one, of several cameras as for `UserCamera`.
    std::optional<std::uint32_t> node = std::nullopt;
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

/// Frames may be 16 to 4096 pixels wide and high; a source of others ends with a warning that says so.
using Source = std::variant<UserCamera, CameraDevice, PortalCamera, VideoFile, Pictures>;

/// The source of the pixels, and the numbers that turn them into centimetres.
///
/// Without calibration, the assumed field of view and eye spacing each shift every distance by a constant factor, some
/// percent to either side. `tarvex calibrate` measures a factor that removes both.
struct Options {
    Source source = UserCamera{};
    double horizontalFieldOfView = 63;      ///< degrees, over the width of the frame
    double interpupillaryDistance = 0.063;  ///< metres between the centres of the user's eyes
    /// Multiplies every distance. Default: the factor that `tarvex calibrate` stored for the camera and its frame size,
    /// else 1. A stored factor holds for the default field of view and eye spacing: if either is set, it is not used.
    std::optional<double> calibrationFactor = std::nullopt;
    /// Directory of the two networks. Default: share/tarvex/face_models beside the library.
    std::optional<std::filesystem::path> modelDirectory = std::nullopt;
};

/// Installs face tracking into a platform that is not used yet; call it before `Platform::install`.
///
/// Reentrant. The options are copied; a file descriptor among them must outlive the platform. Face tracking is then
/// supported when the source and the networks exist; otherwise one warning names the reason. The camera is open only
/// while a measurement runs. No frame is written or sent, or kept after it has been evaluated.
TARVEX_EXPORT void addTo(platform::Platform& platform, Options options = {});

}  // namespace tarvex::camera
