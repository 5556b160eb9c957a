#include "calibrate/calibration.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/camera/scripted_frame_source.h"

namespace tarvex::camera {

TEST(Calibration, MakesTheMedianReadingTheTrueDistance) {
    test::ScriptedCamera device;
    device.depth = 0.4F;
    const auto open = device.opener()();
    const auto readings = read(*open->source, open->finder, std::chrono::seconds(1), [](const Readings&) {});
    ASSERT_TRUE(readings);
    EXPECT_NEAR(factorOf(*readings, 50).value(), 1.25, 1e-6);
    device.isUnplugged = true;
    EXPECT_EQ(read(*open->source, open->finder, std::chrono::seconds(1), [](const Readings&) {}).error(),
              "the camera is gone");
}

TEST(Calibration, RefusesReadingsThatSayTooLittle) {
    Readings few{.centimetres = std::vector<double>(19, 50.0), .frames = 100};
    EXPECT_THAT(factorOf(few, 50).error(), HasSubstr("19 of 100 frames"));
    Readings moving;
    moving.frames = 40;
    for (int frame = 0; frame < 40; ++frame)
        moving.centimetres.push_back(40 + 0.5 * frame);
    EXPECT_THAT(factorOf(moving, 50).error(), HasSubstr("hold the head still"));
    Readings far{.centimetres = std::vector<double>(30, 400.0), .frames = 30};
    EXPECT_THAT(factorOf(far, 50).error(), HasSubstr("check the distance"));
}

}  // namespace tarvex::camera
