#pragma once

#include <cmath>

#include "tarvex/platform/face_tracking.h"

namespace tarvex::camera {

/// Where in the world an eye is, in metres.
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
