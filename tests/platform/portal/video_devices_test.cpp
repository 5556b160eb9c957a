#include "platform/portal/video_devices.h"

#include "platform/portal/video_devices.h"
#include "prelude.h"

namespace tarvex::platform {
namespace {

TEST(MayUseCamera, FollowsTheVideoDevicesThatTheUserMayOpen) {
    struct Case {
        std::vector<std::string> usable;
        std::vector<std::string> unusable;
        bool granted;
    };
    for (const Case& c :
         {Case{{}, {}, true}, Case{{}, {"video", "video1x", "media0"}, true}, Case{{"video0"}, {}, true},
          Case{{}, {"video0"}, false}, Case{{"video10"}, {"video2"}, true}}) {
        SCOPED_TRACE(::testing::PrintToString(c.usable) + ::testing::PrintToString(c.unusable));
        const TemporaryDirectory devices;
        for (const std::string& name : c.usable)
            writeFile(devices.path() / name, "");
        // A node without a device behind it: opening it fails for every user, root included.
        for (const std::string& name : c.unusable)
            std::filesystem::create_symlink("gone", devices.path() / name);
        EXPECT_EQ(mayUseCamera(devices.path()), c.granted);
    }
}

TEST(VideoDevices, AreTheNumberedNodesInTheirOrder) {
    const TemporaryDirectory directory;
    for (const char* name : {"video10", "video2", "videoX", "video", "vide0", "video2a", "audio1"})
        writeFile(directory.path() / name, "");
    EXPECT_THAT(videoDeviceNodes(directory.path()),
                ElementsAre(directory.path() / "video2", directory.path() / "video10"));
    EXPECT_THAT(videoDeviceNodes(directory.path() / "absent"), IsEmpty());
}

}  // namespace
}  // namespace tarvex::platform
