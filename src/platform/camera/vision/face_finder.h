#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <numbers>
#include <optional>
#include <span>
#include <string>

#include "tarvex/platform/face_tracking.h"

namespace tarvex::camera {

/// One picture, valid while its owner shows it: rows from top to bottom, each pixel red, green, blue.
struct Frame {
    int width = 0;
    int height = 0;
    std::size_t stride = 0;  ///< bytes from one row to the next; at least 3 × width
    std::span<const std::uint8_t> pixels;
};

/// The numbers that turn pixels into metres.
struct FaceGeometry {
    double horizontalFieldOfView = 63;      ///< degrees, of the whole frame's width
    double interpupillaryDistance = 0.063;  ///< metres

    /// In pixels, for frames of that width.
    double focalLength(int width) const {
        return width / 2.0 / std::tan(horizontalFieldOfView * std::numbers::pi / 360);
    }
};

/// Finds the nearest face in a frame and places it in space: metres from the camera, x to the right, y up, z against
/// the viewing direction. Keeps no pixel of the frame. Reentrant.
using FaceFinder = std::function<std::optional<platform::Anchor>(const Frame&)>;

/// The finder that reads its two networks from `modelDirectory`, or one sentence on why it cannot. Takes some tens of
/// milliseconds.
std::expected<FaceFinder, std::string> loadFaceFinder(const std::filesystem::path& modelDirectory,
                                                      const FaceGeometry& geometry);

/// The place of an eye in the world, in metres.
struct EyePlace {
    double x = 0;
    double y = 0;
    double z = 0;

    double distance() const { return std::hypot(x, y, z); }  ///< from the camera
};

/// The eye's place in the face, turned and moved as the face is.
inline EyePlace eyePlace(const platform::Anchor& face, const platform::Transform& eye) {
    const auto& m = face.transform.columns;
    const double x = eye.columns[12];
    const double y = eye.columns[13];
    const double z = eye.columns[14];
    return {.x = m[0] * x + m[4] * y + m[8] * z + m[12],
            .y = m[1] * x + m[5] * y + m[9] * z + m[13],
            .z = m[2] * x + m[6] * y + m[10] * z + m[14]};
}

}  // namespace tarvex::camera
