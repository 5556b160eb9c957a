#include "platform/camera/calibration_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "temporary_directory.h"

namespace tarvex::camera {

TEST(CalibrationFile, KeepsAFactorForEachCameraAndMode) {
    const TemporaryDirectory directory;
    const CalibrationFile file(directory.path() / "new" / "cameras.ini");
    EXPECT_EQ(file.factor("Front [HD]", 640, 480), std::nullopt);
    ASSERT_TRUE(file.store("Front [HD]", 640, 480, 1.0625));
    ASSERT_TRUE(file.store("Front [HD]", 1280, 720, 0.875));
    ASSERT_TRUE(file.store("Rückkamera\n", 640, 480, 1.25));
    EXPECT_EQ(file.factor("Front [HD]", 640, 480), 1.0625);
    EXPECT_EQ(file.factor("Front [HD]", 1280, 720), 0.875);
    EXPECT_EQ(file.factor("Rückkamera\n", 640, 480), 1.25);
    EXPECT_EQ(file.factor("Front [HD]", 1920, 1080), std::nullopt);
}

TEST(CalibrationFile, TakesNothingForAFactorThatCannotBeOne) {
    const TemporaryDirectory directory;
    const auto path = directory.path() / "cameras.ini";
    for (const char* value : {"0", "-1", "nan", "inf", "1000", "one", ""}) {
        SCOPED_TRACE(value);
        std::ofstream(path) << "[Front]\n640x480=" << value << "\n";
        EXPECT_EQ(CalibrationFile(path).factor("Front", 640, 480), std::nullopt);
    }
}

TEST(CalibrationFile, LeavesAFileAloneThatItCannotReadOrWrite) {
    const TemporaryDirectory directory;
    const auto path = directory.path() / "cameras.ini";
    const std::string damaged = "[Front]\n640x480=1.25\nno line of an INI file\n";
    std::ofstream(path) << damaged;
    EXPECT_EQ(CalibrationFile(path).factor("Front", 640, 480), std::nullopt);
    EXPECT_THAT(CalibrationFile(path).store("Back", 640, 480, 1).error(), HasSubstr("cannot be read"));
    std::ifstream file(path);
    EXPECT_EQ(std::string(std::istreambuf_iterator(file), {}), damaged);
    EXPECT_THAT(CalibrationFile(path / "no-directory.ini").store("Front", 640, 480, 1).error(), HasSubstr("cannot be"));
}

}  // namespace tarvex::camera
