#pragma once

#include "platform/camera/vision/face_finder.h"

namespace tarvex::benchmarks {

/// A value for each eye.
template <typename Value>
struct BothEyes {
    Value left;
    Value right;
};

/// The eyes' distances from the camera, in metres.
inline BothEyes<double> distancesOf(const platform::Anchor& face) {
    return {.left = camera::eyePlace(face, face.face->leftEyeTransform).distance(),
            .right = camera::eyePlace(face, face.face->rightEyeTransform).distance()};
}

inline double meanOf(const BothEyes<double>& eyes) {
    return (eyes.left + eyes.right) / 2;
}

/// A place in a frame: pixels from its middle, to the right and down.
struct FromMiddle {
    double right = 0;
    double down = 0;
};

/// The eyes' centres as a camera of that focal length (in pixels) sees them.
inline BothEyes<FromMiddle> pixelsOf(const platform::Anchor& face, double focalLength) {
    const auto pixel = [&](const platform::Transform& eye) {
        const camera::EyePlace place = camera::eyePlace(face, eye);
        return FromMiddle{.right = -focalLength * place.x / place.z, .down = focalLength * place.y / place.z};
    };
    return {.left = pixel(face.face->leftEyeTransform), .right = pixel(face.face->rightEyeTransform)};
}

}  // namespace tarvex::benchmarks
