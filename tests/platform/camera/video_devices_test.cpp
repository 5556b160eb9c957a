#include "platform/posix/video_devices.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>

#include "platform/camera/capture/camera_name.h"
#include "temporary_directory.h"

namespace tarvex::camera {

using platform::mayOpen;
using platform::videoDeviceNodes;

TEST(VideoDevices, AreTheNumberedNodesInTheirOrderAndAreNotOpened) {
    const TemporaryDirectory directory;
    for (const char* name : {"video10", "video2", "videoX", "video", "vide0", "video2a", "audio1"})
        std::ofstream(directory.path() / name) << "no device";
    EXPECT_THAT(videoDeviceNodes(directory.path()),
                ElementsAre(directory.path() / "video2", directory.path() / "video10"));
    EXPECT_TRUE(videoDeviceNodes(directory.path() / "absent").empty());
    EXPECT_TRUE(mayOpen(directory.path() / "video2"));
    EXPECT_FALSE(mayOpen(directory.path() / "absent"));
    EXPECT_THAT(cameraName(directory.path() / "video2").error(), HasSubstr("is no camera"));
    EXPECT_THAT(cameraName(directory.path() / "absent").error(), HasSubstr("cannot be opened"));
}

}  // namespace tarvex::camera
