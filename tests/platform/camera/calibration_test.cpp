#include "calibrate/calibration.h"

#include "platform/camera/camera_options.h"
#include "platform/camera/scripted_frame_source.h"

namespace tarvex::camera {

namespace {

using platform::Transform;

constexpr const char* odd = "Rückkamera [HD]\n";  // a name that no INI file's group can have

class Calibration : public ::testing::Test {
protected:
    TemporaryDirectory directory;
    platform::CalibrationFile file{directory.path() / "new" / "cameras.ini"};
};

/// A face whose distances are all multiplied by the factor.
platform::Anchor seen(float factor) {
    const auto movedBy = [factor](float x, float y, float z) {
        Transform transform = Transform::identity();
        std::ranges::copy(std::array{x * factor, y * factor, z * factor}, &transform.columns[12]);
        return transform;
    };
    return {.transform = movedBy(0.125F, 0.25F, -0.5F),
            .face = platform::Anchor::Face{movedBy(0.25F, 0, 0), movedBy(-0.25F, 0, 0)}};
}

auto columnsOf(const platform::Anchor& face) {
    return std::tuple(face.transform.columns, face.face->leftEyeTransform.columns,
                      face.face->rightEyeTransform.columns);
}

}  // namespace

TEST_F(Calibration, CountsForItsCameraAndFrameSizeWhereTheHostSetsNothing) {
    ASSERT_TRUE(file.store("Front", 640, 480, 2));
    ASSERT_TRUE(file.store("Front", 640, 360, 0.5));
    ASSERT_TRUE(file.store(odd, 640, 480, 1.25));
    ASSERT_TRUE(file.store("", 640, 480, 4));
    using Case = std::tuple<Options, std::optional<std::string>, int, float>;
    for (const auto& [options, camera, height, factor] :
         {Case{{}, "Front", 480, 2}, Case{{}, "Front", 360, 0.5}, Case{{}, odd, 480, 1.25}, Case{{}, "", 480, 4},
          Case{{}, "Front", 720, 1}, Case{{}, "Back", 480, 1}, Case{{}, std::nullopt, 480, 1},
          Case{{.calibrationFactor = 4}, "Front", 480, 4}, Case{{.horizontalFieldOfView = 70}, "Front", 480, 1},
          Case{{.interpupillaryDistance = 0.06}, "Front", 480, 1}}) {
        SCOPED_TRACE(camera.value_or("unknown") + " " + std::to_string(height));
        bool blind = false;
        const auto look = [&blind](const Frame&) { return blind ? std::nullopt : std::optional(seen(1)); };
        const auto finder = calibratedFinder(look, options, camera, file);
        EXPECT_TRUE(finder({.width = 320, .height = 240, .pixels = {}})) << "a size before the one that counts";
        const auto face = finder({.width = 640, .height = height, .pixels = {}});
        EXPECT_EQ(columnsOf(*face), columnsOf(seen(factor)));
        blind = true;
        EXPECT_FALSE(finder({.width = 640, .height = height, .pixels = {}}));
    }
}

TEST_F(Calibration, IgnoresNumbersThatCanBeNoFactorAndFilesThatItCannotReadOrWrite) {
    for (const char* value : {"0", "-1", "nan", "inf", "1000", "one", "", "1.25\nno line of an INI file"}) {
        SCOPED_TRACE(value);
        writeFile(file.path(), std::string("[Front]\n640x480=") + value + "\n");
        EXPECT_EQ(file.factor("Front", 640, 480), std::nullopt);
    }
    const auto damaged = contentsOf(file.path());
    EXPECT_THAT(file.store("Back", 640, 480, 1).error(), HasSubstr("cannot be read"));
    EXPECT_EQ(contentsOf(file.path()), damaged);
    EXPECT_THAT(platform::CalibrationFile("/proc/cameras.ini").store("Front", 640, 480, 1).error(),
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

TEST(CalibrationReadings, GiveAFactorWhenTheyAreManyAndCloseTogether) {
    const auto factor = [](int count, double first, double step) {
        Readings readings{.centimetres = {}, .frames = 100};
        for (int frame = 0; frame < count; ++frame)
            readings.centimetres.push_back(first + step * frame);
        return factorOf(readings, 50);
    };
    EXPECT_NEAR(factor(21, 39, 0.1).value(), 1.25, 1e-6);
    EXPECT_THAT(factor(19, 50, 0).error(), HasSubstr("19 of 100 frames"));
    EXPECT_THAT(factor(40, 40, 0.5).error(), HasSubstr("hold the head still"));
    EXPECT_THAT(factor(30, 400, 0).error(), HasSubstr("check the distance"));
}

}  // namespace tarvex::camera
