#include "accuracy/printed_face.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace tarvex::benchmarks {
namespace {

using platform::Anchor;
using platform::Transform;

constexpr double assumedFieldOfView = 63;
constexpr double leastEyeSpacing = 24;  // pixels: a print of fewer is too coarse to measure by

struct Point {
    double x;
    double y;
    double z;
};

Point translationOf(const Transform& transform) {
    return {.x = transform.columns[12], .y = transform.columns[13], .z = transform.columns[14]};
}

/// The eye in the world: its place in the face, turned and moved as the face is.
Point eyePlace(const Anchor& face, const Transform& eye) {
    const auto& m = face.transform.columns;
    const Point inFace = translationOf(eye);
    return {.x = m[0] * inFace.x + m[4] * inFace.y + m[8] * inFace.z + m[12],
            .y = m[1] * inFace.x + m[5] * inFace.y + m[9] * inFace.z + m[13],
            .z = m[2] * inFace.x + m[6] * inFace.y + m[10] * inFace.z + m[14]};
}

double norm(const Point& point) {
    return std::sqrt(point.x * point.x + point.y * point.y + point.z * point.z);
}

bool isSameFace(const FacePlace& a, const FacePlace& b) {
    return std::hypot(a.x - b.x, a.y - b.y) < std::max(a.eyeSpacing, b.eyeSpacing);
}

}  // namespace

EyeDistances distancesOf(const Anchor& face) {
    return {.left = norm(eyePlace(face, face.face->leftEyeTransform)),
            .right = norm(eyePlace(face, face.face->rightEyeTransform))};
}

FacePlace placeOf(const Anchor& face, const camera::Frame& frame, double horizontalFieldOfView) {
    const double focalLength = frame.width / 2.0 / std::tan(horizontalFieldOfView * std::numbers::pi / 360);
    const auto pixel = [&](const Point& point) {
        return std::array{frame.width / 2.0 - focalLength * point.x / point.z,
                          frame.height / 2.0 + focalLength * point.y / point.z};
    };
    const auto left = pixel(eyePlace(face, face.face->leftEyeTransform));
    const auto right = pixel(eyePlace(face, face.face->rightEyeTransform));
    return {.x = (left[0] + right[0]) / 2,
            .y = (left[1] + right[1]) / 2,
            .eyeSpacing = std::hypot(left[0] - right[0], left[1] - right[1])};
}

std::vector<FacePlace> facesIn(const Picture& photograph, const camera::FaceFinder& finder) {
    std::vector<FacePlace> faces;
    const int shorter = std::min(photograph.width, photograph.height);
    for (const double part : {1.0, 0.6, 0.4, 0.28}) {
        const int size = static_cast<int>(shorter * part);
        const int step = std::max(1, size / 3);
        for (int top = 0; top + size <= photograph.height; top += step) {
            for (int left = 0; left + size <= photograph.width; left += step) {
                const camera::Frame square = photograph.part(left, top, size);
                const auto face = finder(square);
                if (!face) continue;
                FacePlace place = placeOf(*face, square, assumedFieldOfView);
                place.x += left;
                place.y += top;
                if (std::ranges::none_of(faces, [&](const FacePlace& known) { return isSameFace(known, place); }))
                    faces.push_back(place);
            }
        }
    }
    return faces;
}

std::vector<PrintedFace> printedFaces(const Picture& photograph, const std::vector<FacePlace>& faces) {
    std::vector<PrintedFace> printed;
    for (const FacePlace& face : faces) {
        const int half = static_cast<int>(face.eyeSpacing * 2.2);
        const int left = static_cast<int>(face.x) - half;
        const int top = static_cast<int>(face.y + 0.5 * face.eyeSpacing) - half;
        const bool within =
            left >= 0 && top >= 0 && left + 2 * half <= photograph.width && top + 2 * half <= photograph.height;
        if (!within || face.eyeSpacing < leastEyeSpacing) continue;
        printed.push_back({.surroundings = photograph.part(left, top, 2 * half), .eyeSpacing = face.eyeSpacing});
    }
    return printed;
}

std::vector<camera::Frame> partsWithoutFaces(const Picture& photograph, const std::vector<FacePlace>& faces) {
    std::vector<camera::Frame> parts;
    const int shorter = std::min(photograph.width, photograph.height);
    for (const double part : {0.5, 0.3}) {
        const int size = static_cast<int>(shorter * part);
        for (int top = 0; top + size <= photograph.height; top += size / 2) {
            for (int left = 0; left + size <= photograph.width; left += size / 2) {
                const bool holdsFace = std::ranges::any_of(faces, [&](const FacePlace& face) {
                    const double reach = 2 * face.eyeSpacing;
                    return face.x > left - reach && face.x < left + size + reach && face.y > top - reach &&
                           face.y < top + size + reach;
                });
                if (!holdsFace) parts.push_back(photograph.part(left, top, size));
            }
        }
    }
    return parts;
}

}  // namespace tarvex::benchmarks
