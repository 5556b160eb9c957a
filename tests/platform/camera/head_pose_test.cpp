#include "platform/camera/vision/head_pose.h"

#include <Eigen/Dense>
#include <numbers>

#include "platform/camera/vision/canonical_face.h"
#include "prelude.h"

namespace tarvex::camera {

namespace {

using Eigen::Vector3d;

constexpr int width = 640;
constexpr int height = 480;

struct Head {
    double yaw = 0;    // degrees, to the user's left
    double pitch = 0;  // degrees
    double roll = 0;   // degrees
    Vector3d place{0, 0, -0.5};
};

Eigen::Matrix3d turnOf(const Head& head) {
    const auto about = [](double degrees, const Vector3d& axis) {
        return Eigen::AngleAxisd(degrees * std::numbers::pi / 180, axis);
    };
    return (about(head.yaw, Vector3d::UnitY()) * about(head.pitch, Vector3d::UnitX()) *
            about(head.roll, Vector3d::UnitZ()))
        .toRotationMatrix();
}

/// Where a camera of that field of view sees the mean face's points.
FacePoints seen(const Head& head, double fieldOfView = 63) {
    const double focalLength = width / 2.0 / std::tan(fieldOfView * std::numbers::pi / 360);
    FacePoints points{};
    for (const CanonicalPoint& point : canonicalFace) {
        const Vector3d world = turnOf(head) * Vector3d(point.x, point.y, point.z) / 100 + head.place;
        points.at(point.meshIndex) = {.x = static_cast<float>(width / 2.0 - focalLength * world.x() / world.z()),
                                      .y = static_cast<float>(height / 2.0 + focalLength * world.y() / world.z())};
    }
    return points;
}

Vector3d eyeOf(const platform::Anchor& anchor, const platform::Transform& eye) {
    const Eigen::Matrix4f face = Eigen::Map<const Eigen::Matrix4f>(anchor.transform.columns.data());
    const Eigen::Matrix4f inFace = Eigen::Map<const Eigen::Matrix4f>(eye.columns.data());
    return (face * inFace).topRightCorner<3, 1>().cast<double>();
}

}  // namespace

TEST(HeadPose, PlacesBothEyesOfATurnedHeadToAMillimetre) {
    const auto [x, y, z] = canonicalLeftEye;
    for (const Head& head : {Head{}, Head{.yaw = 30}, Head{.yaw = -25, .pitch = 15}, Head{.pitch = -20, .roll = 40},
                             Head{.roll = -90}, Head{.place = {0.1, -0.05, -0.25}}, Head{.place = {-0.2, 0.1, -0.8}}}) {
        SCOPED_TRACE(::testing::Message() << "yaw " << head.yaw << " pitch " << head.pitch << " roll " << head.roll);
        const auto anchor = headPose(seen(head), width, height, {.interpupillaryDistance = 0.06302});
        ASSERT_TRUE(anchor);
        EXPECT_LT(
            (eyeOf(*anchor, anchor->face->leftEyeTransform) - (turnOf(head) * Vector3d(x, y, z) + head.place)).norm(),
            0.001);
        EXPECT_LT(
            (eyeOf(*anchor, anchor->face->rightEyeTransform) - (turnOf(head) * Vector3d(-x, y, z) + head.place)).norm(),
            0.001);
    }
}

TEST(HeadPose, ScalesWithTheEyeSpacingAndWithTheFieldOfView) {
    const auto depth = [](const FaceGeometry& geometry) {
        return -headPose(seen({}), width, height, geometry)->transform.columns[14];
    };
    EXPECT_NEAR(depth({.interpupillaryDistance = 2 * 0.06302}), 2 * depth({.interpupillaryDistance = 0.06302}), 1e-3);
    const auto narrow = headPose(seen({}, 40), width, height, {.horizontalFieldOfView = 40});
    EXPECT_NEAR(-narrow->transform.columns[14], depth({}), 1e-3);
}

TEST(HeadPose, RefusesPointsThatAreNoRigidHeadBeforeTheCamera) {
    FacePoints scattered = seen({});
    for (std::size_t place = 0; place < canonicalFace.size(); place += 2)
        scattered.at(canonicalFace.at(place).meshIndex).y += 25;
    EXPECT_FALSE(headPose(scattered, width, height, {}));
    EXPECT_FALSE(headPose(FacePoints{}, width, height, {})) << "all points in one place";
    FacePoints notNumbers = seen({});
    notNumbers.at(33).x = std::nanf("");
    EXPECT_FALSE(headPose(notNumbers, width, height, {}));
    EXPECT_FALSE(headPose(seen({.yaw = 50}), width, height, {})) << "as a profile is seen, which hides an eye";
    EXPECT_TRUE(headPose(seen({.yaw = 46}), width, height, {}));
}

}  // namespace tarvex::camera
