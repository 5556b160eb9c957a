#include "calibrate/calibration.h"

#include "platform/camera/calibrated_finder.h"
#include "platform/camera/scripted_frame_source.h"
#include "prelude.h"

namespace tarvex::camera {

namespace {

using platform::Transform;

constexpr const char* odd = "Rückkamera [HD]\n";  // a name that no INI file's group can have

class Calibration : public ::testing::Test {
protected:
    TemporaryDirectory directory;
    CalibrationFile file{directory.path() / "new" / "cameras.ini"};
};

/// A face whose distances are all multiplied by the factor.
platform::Anchor seen(float factor) {
    const auto movedBy = [factor](float x, float y, float z) {
        Transform transform = Transform::identity();
        std::ranges::copy(std::array{x * factor, y * factor, z * factor}, &transform.columns[12]);
        return transform;
    };
    return {.transform = movedBy(0.125F, 0.25F, -0.5F),
            .face = platform::Anchor::Face{.leftEyeTransform = movedBy(0.25F, 0, 0),
                                           .rightEyeTransform = movedBy(-0.25F, 0, 0)}};
}

}  // namespace

TEST_F(Calibration, CountsForItsCameraAndFrameSizeWhereTheHostSetsNothing) {
    ASSERT_TRUE(file.store("Front", 640, 480, 2));
    ASSERT_TRUE(file.store("Front", 640, 360, 0.5));
    ASSERT_TRUE(file.store(odd, 640, 480, 1.25));
    ASSERT_TRUE(file.store("", 640, 480, 4));
    struct Case {
        const char* name;
        Options options;
        std::optional<std::string> camera;
        int height;
        float factor;
    };
    for (const Case& c : {Case{"stored", {}, "Front", 480, 2}, Case{"another size", {}, "Front", 360, 0.5},
                          Case{"another camera", {}, odd, 480, 1.25}, Case{"a camera's empty name", {}, "", 480, 4},
                          Case{"no such size", {}, "Front", 720, 1}, Case{"no such camera", {}, "Back", 480, 1},
                          Case{"unknown camera", {}, std::nullopt, 480, 1},
                          Case{"own factor", {.calibrationFactor = 4}, "Front", 480, 4},
                          Case{"own field of view", {.horizontalFieldOfView = 70}, "Front", 480, 1},
                          Case{"own eye spacing", {.interpupillaryDistance = 0.06}, "Front", 480, 1}}) {
        SCOPED_TRACE(c.name);
        bool blind = false;
        const auto look = [&blind](const Frame&) { return blind ? std::nullopt : std::optional(seen(1)); };
        const auto finder = calibratedFinder(look, c.options, c.camera, file);
        EXPECT_TRUE(finder({.width = 320, .height = 240, .pixels = {}})) << "a size before the one that counts";
        const auto face = finder({.width = 640, .height = c.height, .pixels = {}});
        EXPECT_EQ(face->transform.columns, seen(c.factor).transform.columns);
        EXPECT_EQ(face->face->leftEyeTransform.columns, seen(c.factor).face->leftEyeTransform.columns);
        EXPECT_EQ(face->face->rightEyeTransform.columns, seen(c.factor).face->rightEyeTransform.columns);
        blind = true;
        EXPECT_FALSE(finder({.width = 640, .height = c.height, .pixels = {}}));
    }
}

TEST_F(Calibration, TakesNothingForAFactorThatCannotBeOne) {
    for (const char* value : {"0", "-1", "nan", "inf", "1000", "one", ""}) {
        SCOPED_TRACE(value);
        writeFile(file.path(), std::string("[Front]\n640x480=") + value + "\n");
        EXPECT_EQ(file.factor("Front", 640, 480), std::nullopt);
    }
}

TEST_F(Calibration, LeavesAFileAloneThatItCannotReadOrWrite) {
    constexpr const char* damaged = "[Front]\n640x480=1.25\nno line of an INI file\n";
    writeFile(file.path(), damaged);
    EXPECT_EQ(file.factor("Front", 640, 480), std::nullopt);
    EXPECT_THAT(file.store("Back", 640, 480, 1).error(), HasSubstr("cannot be read"));
    EXPECT_EQ(contentsOf(file.path()), damaged);
    EXPECT_THAT(CalibrationFile("/proc/cameras.ini").store("Front", 640, 480, 1).error(),
                HasSubstr("cannot be written"));
}

TEST(CalibrationReadings, AreTheMeanOfBothEyesUntilTheCameraFailsOrChangesItsSize) {
    test::ScriptedCamera device;
    device.depth = 0.4F;
    const auto open = device.opener()();
    const auto readFor = [&](std::chrono::seconds duration, const std::function<void(const Readings&)>& progress) {
        return read(*open->source, open->finder, duration, progress);
    };
    const auto readings = readFor(1s, [](const Readings&) {});
    ASSERT_TRUE(readings);
    EXPECT_NEAR(factorOf(*readings, 50).value(), 1.25, 1e-6);
    EXPECT_THAT(readFor(10s, [&](const Readings&) { device.width = 320; }).error(), HasSubstr("changed the size"));
    device.isUnplugged = true;
    EXPECT_EQ(readFor(10s, [](const Readings&) {}).error(), "the camera is gone");
}

TEST(CalibrationReadings, GiveAFactorWhereTheirMedianSaysEnough) {
    const auto readings = [](std::size_t count, double first, double step) {
        Readings made{.centimetres = {}, .frames = 100};
        for (std::size_t frame = 0; frame < count; ++frame)
            made.centimetres.push_back(first + step * static_cast<double>(frame));
        return made;
    };
    EXPECT_NEAR(factorOf(readings(21, 39, 0.1), 50).value(), 1.25, 1e-6);
    EXPECT_THAT(factorOf(readings(19, 50, 0), 50).error(), HasSubstr("19 of 100 frames"));
    EXPECT_THAT(factorOf(readings(40, 40, 0.5), 50).error(), HasSubstr("hold the head still"));
    EXPECT_THAT(factorOf(readings(30, 400, 0), 50).error(), HasSubstr("check the distance"));
}

}  // namespace tarvex::camera
