#include "platform/camera/calibrated_finder.h"

#include <gtest/gtest.h>

#include "temporary_directory.h"

namespace tarvex::camera {

namespace {

using platform::Transform;

Transform movedBy(float x, float y, float z) {
    Transform transform = Transform::identity();
    transform.columns[12] = x;
    transform.columns[13] = y;
    transform.columns[14] = z;
    return transform;
}

platform::Anchor seen() {
    return {.transform = movedBy(0.125F, 0.25F, -0.5F),
            .face = platform::Anchor::Face{.leftEyeTransform = movedBy(0.25F, 0, 0),
                                           .rightEyeTransform = movedBy(-0.25F, 0, 0)}};
}

}  // namespace

TEST(CalibratedFinder, UsesTheHostsFactorElseTheStoredOneWhereTheHostSetsNothing) {
    const TemporaryDirectory directory;
    const CalibrationFile file(directory.path() / "cameras.ini");
    ASSERT_TRUE(file.store("Front", 640, 480, 2));
    struct Case {
        const char* name;
        Options options;
        const char* camera;
        int width;
        float factor;
    };
    for (const Case& c : {Case{"stored", {}, "Front", 640, 2}, Case{"another size", {}, "Front", 1280, 1},
                          Case{"another camera", {}, "Back", 640, 1}, Case{"no camera", {}, "", 640, 1},
                          Case{"own factor", {.calibrationFactor = 4}, "Front", 640, 4},
                          Case{"own field of view", {.horizontalFieldOfView = 70}, "Front", 640, 1},
                          Case{"own eye spacing", {.interpupillaryDistance = 0.06}, "Front", 640, 1}}) {
        SCOPED_TRACE(c.name);
        const auto finder = calibratedFinder([](const Frame&) { return seen(); }, c.options, c.camera, file);
        for (int look = 0; look < 2; ++look) {
            const auto face = finder({.width = c.width, .height = 480, .stride = 0, .pixels = {}});
            ASSERT_TRUE(face);
            EXPECT_EQ(face->transform.columns, movedBy(0.125F * c.factor, 0.25F * c.factor, -0.5F * c.factor).columns);
            EXPECT_EQ(face->face->leftEyeTransform.columns, movedBy(0.25F * c.factor, 0, 0).columns);
            EXPECT_EQ(face->face->rightEyeTransform.columns, movedBy(-0.25F * c.factor, 0, 0).columns);
        }
    }
    const FaceFinder blind = [](const Frame&) { return std::nullopt; };
    EXPECT_FALSE(calibratedFinder(blind, {}, "Front", file)({.width = 640, .height = 480, .stride = 0, .pixels = {}}));
}

}  // namespace tarvex::camera
