#pragma once

#include <cmath>
#include <numbers>
#include <optional>

#include "platform/camera/vision/face_mesh.h"
#include "tarvex/platform/face_tracking.h"

namespace tarvex::camera {

/// What turns pixels into metres.
struct FaceGeometry {
    double horizontalFieldOfView = 63;      ///< degrees, of the whole frame's width
    double interpupillaryDistance = 0.063;  ///< metres

    /// In pixels, for frames of that width.
    double focalLength(int width) const {
        return width / 2.0 / std::tan(horizontalFieldOfView * std::numbers::pi / 360);
    }
};

/// Places the face in space from where its points lie in a frame of width × height pixels; absent when the points are
/// not those of a rigid head in front of the camera, or of one that looks past it by more than 48°.
///
/// A perspective-n-point problem: the pose that carries the mean face, scaled to the interpupillary distance, onto the
/// points is found by Levenberg and Marquardt's method (Levenberg 1944, Marquardt 1963).
std::optional<platform::Anchor> headPose(const FacePoints& points, int width, int height, const FaceGeometry& geometry);

}  // namespace tarvex::camera
