#pragma once

#include <array>
#include <cstddef>
#include <optional>

#include "platform/camera/vision/face_finder.h"
#include "platform/camera/vision/face_mesh.h"

namespace tarvex::camera {

/// A point of the mesh on the mean face, in centimetres: x to the user's own left, y up, z out of the face.
struct CanonicalPoint {
    std::size_t meshIndex;
    double x;
    double y;
    double z;
};

/// The points that keep their place on the skull whatever the face does: the bridge and the foot of the nose, the eyes'
/// corners, the corners of the mouth. From the canonical face model that the mesh's network was trained against.
constexpr std::array<CanonicalPoint, 18> canonicalFace{{
    {168, 0, 3.271, 5.236},
    {6, 0, 2.473, 5.789},
    {197, 0, 1.728, 6.317},
    {195, 0, 1.059, 6.775},
    {5, 0, 0.366, 7.243},
    {4, 0, -0.463, 7.587},
    {1, 0, -1.127, 7.476},
    {2, 0, -2.089, 6.058},
    {98, -1.406, -1.714, 5.241},
    {327, 1.406, -1.714, 5.241},
    {129, -1.786, -0.978, 4.850},
    {358, 1.786, -0.978, 4.850},
    {33, -4.446, 2.664, 3.173},
    {263, 4.446, 2.664, 3.173},
    {133, -1.856, 2.585, 3.758},
    {362, 1.856, 2.585, 3.758},
    {61, -2.456, -4.343, 4.284},
    {291, 2.456, -4.343, 4.284},
}};

/// The corners of the eyes among them: the distance is solved again from these, the steadiest, alone.
constexpr std::size_t firstCanthus = 12;
constexpr std::size_t canthi = 4;

/// The distance between the mean face's eyes, and where the left one lies: between its corners, 7 mm inward. The right
/// eye is its mirror image. Metres.
constexpr double canonicalInterpupillaryDistance = 0.06302;
constexpr std::array<double, 3> canonicalLeftEye{0.03151, 0.02625, 0.02766};

/// Places the face in space from its points in a frame of width × height pixels; absent when the points are not those
/// of a rigid head in front of the camera, or of one that looks past it by more than 48°.
///
/// A perspective-n-point problem: the pose that carries the mean face, scaled to the interpupillary distance, onto the
/// points is found by Levenberg and Marquardt's method (Levenberg 1944, Marquardt 1963).
std::optional<platform::Anchor> headPose(const FacePoints& points, int width, int height, const FaceGeometry& geometry);

}  // namespace tarvex::camera
