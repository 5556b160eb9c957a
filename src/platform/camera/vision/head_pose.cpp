#include "platform/camera/vision/head_pose.h"

#include <Eigen/Cholesky>
#include <Eigen/Geometry>
#include <algorithm>
#include <cmath>

namespace tarvex::camera {
namespace {

using Eigen::Matrix3d;
using Eigen::Vector2d;
using Eigen::Vector3d;
using platform::Anchor;
using platform::Transform;

constexpr std::size_t pointCount = canonicalFace.size();
constexpr std::size_t rightOuterCanthus = 12;
constexpr std::size_t leftOuterCanthus = 13;

constexpr int mostSteps = 8;
constexpr double smallestStep = 1e-9;
// The largest accepted deviation of the points from a rigid head's, against the width between the outer canthi: faces
// reach 0.077.
constexpr double worstFit = 0.09;
// The cosine of 48°. A face in profile hides an eye: there is nothing to measure by. The mesh sees a turned face less
// turned than it is: full profiles as 51° to 58° away from the camera, faces that show both eyes as 43° at most.
constexpr double leastFacing = 0.669;
constexpr double nearest = 0.02;  // metres: nothing nearer can be a face in focus

/// The camera's axes are x right, y down, z forward; the face's and the world's y is up and their z comes back.
Matrix3d flipped() {
    return Vector3d(1, -1, -1).asDiagonal();
}

struct Pose {
    Matrix3d rotation = Matrix3d::Identity();
    Vector3d translation = Vector3d::Zero();
};

/// The mean face in the camera's axes, and the directions in which its points are seen: u to the right, v down, at
/// depth 1.
struct Problem {
    std::array<Vector3d, pointCount> model;
    std::array<Vector2d, pointCount> seen;
};

using Residuals = std::array<Vector2d, pointCount>;

Problem problemOf(const FacePoints& points, int width, int height, double focalLength, double scale) {
    Problem problem;
    const Vector2d centre(width / 2.0, height / 2.0);
    for (std::size_t place = 0; place < pointCount; ++place) {
        const CanonicalPoint& point = canonicalFace.at(place);
        problem.model.at(place) = flipped() * Vector3d(point.x, point.y, point.z) * scale / 100;
        const ImagePoint pixel = points.at(point.meshIndex);
        problem.seen.at(place) = (Vector2d(pixel.x, pixel.y) - centre) / focalLength;
    }
    return problem;
}

/// A start from the flat similarity between the mean face and the picture: its roll and its size.
Pose firstGuess(const Problem& problem) {
    Vector2d modelCentre = Vector2d::Zero();
    Vector2d seenCentre = Vector2d::Zero();
    for (std::size_t place = 0; place < pointCount; ++place) {
        modelCentre += problem.model.at(place).head<2>() / double{pointCount};
        seenCentre += problem.seen.at(place) / double{pointCount};
    }
    double along = 0;
    double across = 0;
    double modelSize = 0;
    double seenSize = 0;
    for (std::size_t place = 0; place < pointCount; ++place) {
        const Vector2d model = problem.model.at(place).head<2>() - modelCentre;
        const Vector2d seen = problem.seen.at(place) - seenCentre;
        along += model.dot(seen);
        across += model.x() * seen.y() - model.y() * seen.x();
        modelSize += model.norm();
        seenSize += seen.norm();
    }
    Pose pose;
    pose.rotation = Eigen::AngleAxisd(std::atan2(across, along), Vector3d::UnitZ()).toRotationMatrix();
    const double depth = modelSize / std::max(seenSize, 1e-9);
    pose.translation = depth * Vector3d(seenCentre.x(), seenCentre.y(), 1);
    return pose;
}

/// The distance of each point from its seen place; absent when one would lie behind the camera.
std::optional<Residuals> residualsOf(const Problem& problem, const Pose& pose) {
    Residuals residuals;
    for (std::size_t place = 0; place < pointCount; ++place) {
        const Vector3d point = pose.rotation * problem.model.at(place) + pose.translation;
        if (!(point.z() > nearest)) return std::nullopt;
        residuals.at(place) = point.head<2>() / point.z() - problem.seen.at(place);
    }
    return residuals;
}

double sumOfSquares(const Residuals& residuals) {
    double sum = 0;
    for (const Vector2d& residual : residuals)
        sum += residual.squaredNorm();
    return sum;
}

/// The least-squares problem of a small turn in the camera's axes and a small move: its normal equations, summed point
/// by point.
struct NormalEquations {
    Eigen::Matrix<double, 6, 6> matrix = Eigen::Matrix<double, 6, 6>::Zero();
    Eigen::Matrix<double, 6, 1> side = Eigen::Matrix<double, 6, 1>::Zero();
};

NormalEquations normalEquationsOf(const Problem& problem, const Pose& pose, const Residuals& residuals) {
    NormalEquations equations;
    for (std::size_t place = 0; place < pointCount; ++place) {
        const Vector3d turned = pose.rotation * problem.model.at(place);
        const Vector3d point = turned + pose.translation;
        Eigen::Matrix<double, 2, 3> projection;
        projection << 1 / point.z(), 0, -point.x() / (point.z() * point.z()),  //
            0, 1 / point.z(), -point.y() / (point.z() * point.z());
        Matrix3d turning;
        turning << 0, turned.z(), -turned.y(),  //
            -turned.z(), 0, turned.x(),         //
            turned.y(), -turned.x(), 0;
        Eigen::Matrix<double, 2, 6> jacobian;
        jacobian << projection * turning, projection;
        equations.matrix += jacobian.transpose() * jacobian;
        equations.side -= jacobian.transpose() * residuals.at(place);
    }
    return equations;
}

Pose moved(const Pose& pose, const Eigen::Matrix<double, 6, 1>& step) {
    const Vector3d turn = step.head<3>();
    const double angle = turn.norm();
    Pose next = pose;
    if (angle > 0) next.rotation = Eigen::AngleAxisd(angle, turn / angle).toRotationMatrix() * pose.rotation;
    next.translation += step.tail<3>();
    return next;
}

struct Fit {
    Pose pose;
    double meanSquare = 0;  ///< of the residuals, a point
};

std::optional<Fit> fit(const Problem& problem) {
    Pose pose = firstGuess(problem);
    auto residuals = residualsOf(problem, pose);
    if (!residuals) return std::nullopt;
    double damping = 1e-3;
    for (int step = 0; step < mostSteps; ++step) {
        NormalEquations equations = normalEquationsOf(problem, pose, *residuals);
        equations.matrix.diagonal() *= 1 + damping;
        const Eigen::Matrix<double, 6, 1> change = equations.matrix.ldlt().solve(equations.side);
        if (!change.allFinite()) return std::nullopt;
        const Pose next = moved(pose, change);
        const auto after = residualsOf(problem, next);
        if (!after || sumOfSquares(*after) > sumOfSquares(*residuals)) {
            damping *= 10;
            continue;
        }
        pose = next;
        residuals = after;
        damping /= 10;
        if (change.norm() < smallestStep) break;
    }
    return Fit{.pose = pose, .meanSquare = sumOfSquares(*residuals) / double{pointCount}};
}

/// The translation that the eyes' corners ask for, the rotation kept: linear in it, so solved at once.
Vector3d translationFromCanthi(const Problem& problem, const Matrix3d& rotation) {
    Matrix3d matrix = Matrix3d::Zero();
    Vector3d side = Vector3d::Zero();
    for (std::size_t canthus = 0; canthus < canthi; ++canthus) {
        const Vector3d point = rotation * problem.model.at(firstCanthus + canthus);
        const Vector2d seen = problem.seen.at(firstCanthus + canthus);
        Eigen::Matrix<double, 2, 3> moves;
        moves << 1, 0, -seen.x(),  //
            0, 1, -seen.y();
        matrix += moves.transpose() * moves;
        side += moves.transpose() * (seen * point.z() - point.head<2>());
    }
    return matrix.inverse() * side;
}

Transform transformOf(const Matrix3d& rotation, const Vector3d& translation) {
    Eigen::Matrix4f matrix = Eigen::Matrix4f::Identity();
    matrix.topLeftCorner<3, 3>() = rotation.cast<float>();
    matrix.topRightCorner<3, 1>() = translation.cast<float>();
    Transform transform{};
    std::copy_n(matrix.data(), transform.columns.size(), transform.columns.begin());  // both by columns
    return transform;
}

}  // namespace

std::optional<Anchor> headPose(const FacePoints& points, int width, int height, const FaceGeometry& geometry) {
    const double scale = geometry.interpupillaryDistance / canonicalInterpupillaryDistance;
    const Problem problem = problemOf(points, width, height, geometry.focalLength(width), scale);
    const auto found = fit(problem);
    if (!found) return std::nullopt;
    const double eyeWidth = (problem.seen.at(rightOuterCanthus) - problem.seen.at(leftOuterCanthus)).norm();
    if (!(std::sqrt(found->meanSquare) <= worstFit * eyeWidth)) return std::nullopt;

    const Matrix3d rotation = found->pose.rotation;
    const Vector3d translation = translationFromCanthi(problem, rotation);
    if (!translation.allFinite() || !(translation.z() > nearest)) return std::nullopt;

    const Vector3d outOfFace = rotation * -Vector3d::UnitZ();
    if (outOfFace.dot(-translation.normalized()) < leastFacing) return std::nullopt;

    const auto [x, y, z] = canonicalLeftEye;
    return Anchor{
        .transform = transformOf(flipped() * rotation * flipped(), flipped() * translation),
        .face = Anchor::Face{.leftEyeTransform = transformOf(Matrix3d::Identity(), scale * Vector3d(x, y, z)),
                             .rightEyeTransform = transformOf(Matrix3d::Identity(), scale * Vector3d(-x, y, z))}};
}

}  // namespace tarvex::camera
