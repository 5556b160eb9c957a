#include "accuracy/posed_head.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>
#include <vector>

#include "accuracy/seen_eyes.h"
#include "platform/camera/vision/head_pose.h"

namespace tarvex::benchmarks {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector3d;

constexpr int width = 640;
constexpr int height = 480;
constexpr double pixelNoise = 0.7;
constexpr double shapeNoise = 0.002;  // metres
constexpr int heads = 40;

double radians(double degrees) {
    return degrees * std::numbers::pi / 180;
}

/// A person's own face: the mean one with each point a little elsewhere. Metres; y up, z out of the face.
std::vector<Vector3d> someFace(std::mt19937& random) {
    std::normal_distribution<double> noise(0, shapeNoise);
    std::vector<Vector3d> points;
    for (const camera::CanonicalPoint& point : camera::canonicalFace)
        points.emplace_back(point.x / 100 + noise(random), point.y / 100 + noise(random),
                            point.z / 100 + noise(random));
    return points;
}

struct Pose {
    double yaw;
    double pitch;
    double depth;
};

Vector3d placed(const Vector3d& point, const Pose& pose) {
    const Matrix3d turn = (Eigen::AngleAxisd(radians(pose.yaw), Vector3d::UnitY()) *
                           Eigen::AngleAxisd(radians(pose.pitch), Vector3d::UnitX()))
                              .toRotationMatrix();
    return turn * point - Vector3d(0, 0, pose.depth);
}

std::optional<BothEyes<double>> measured(const std::vector<Vector3d>& face, const Pose& pose, std::mt19937& random) {
    std::normal_distribution<double> noise(0, pixelNoise);
    const camera::FaceGeometry geometry;
    const double focalLength = geometry.focalLength(width);
    camera::FacePoints points{};
    for (std::size_t place = 0; place < face.size(); ++place) {
        const Vector3d point = placed(face[place], pose);
        points.at(camera::canonicalFace.at(place).meshIndex) = {
            .x = static_cast<float>(width / 2.0 - focalLength * point.x() / point.z() + noise(random)),
            .y = static_cast<float>(height / 2.0 + focalLength * point.y() / point.z() + noise(random))};
    }
    const auto anchor = camera::headPose(points, width, height, geometry);
    if (!anchor) return std::nullopt;
    return distancesOf(*anchor);
}

BothEyes<double> truth(const Pose& pose) {
    const auto [x, y, z] = camera::canonicalLeftEye;
    return {.left = placed({x, y, z}, pose).norm(), .right = placed({-x, y, z}, pose).norm()};
}

}  // namespace

ErrorSummary posedHeads(std::mt19937& random) {
    constexpr Pose reference{.yaw = 0, .pitch = 0, .depth = 0.5};
    ErrorSummary summary;
    for (int head = 0; head < heads; ++head) {
        const auto face = someFace(random);
        const auto base = measured(face, reference, random);
        if (!base) continue;
        const BothEyes<double> baseTruth = truth(reference);
        for (const double depth : {0.25, 0.4, 0.6, 0.8}) {
            for (const double yaw : {-30.0, -15.0, 0.0, 15.0, 30.0}) {
                for (const double pitch : {-20.0, 0.0, 20.0}) {
                    const Pose pose{.yaw = yaw, .pitch = pitch, .depth = depth};
                    const auto seen = measured(face, pose, random);
                    if (!seen) continue;
                    const BothEyes<double> expected = truth(pose);
                    summary.add((seen->left / base->left) / (expected.left / baseTruth.left) - 1);
                    summary.add((seen->right / base->right) / (expected.right / baseTruth.right) - 1);
                }
            }
        }
    }
    return summary;
}

}  // namespace tarvex::benchmarks
