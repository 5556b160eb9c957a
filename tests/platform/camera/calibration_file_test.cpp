#include "platform/camera/calibration_file.h"

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
    std::ofstream(path) << "no INI file";
    EXPECT_EQ(CalibrationFile(path).factor("Front", 640, 480), std::nullopt);
    std::filesystem::create_directory(directory.path() / "directory");
    EXPECT_FALSE(CalibrationFile(directory.path() / "directory").store("Front", 640, 480, 1));
}

}  // namespace tarvex::camera
