#include "platform/camera/capture/gst_frame_source.h"

#include <gmock/gmock.h>
#include <gst/gst.h>
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <optional>
#include <string>

#include "platform/camera/capture/video_devices.h"
#include "temporary_directory.h"

namespace tarvex::camera {

namespace {

/// Runs a pipeline that writes a file to its end.
void record(const std::string& pipeline, const std::filesystem::path& file) {
    gst_init(nullptr, nullptr);
    GstElement* running = gst_parse_launch((pipeline + " ! filesink location=" + file.string()).c_str(), nullptr);
    ASSERT_NE(running, nullptr) << pipeline;
    gst_element_set_state(running, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(running);
    GstMessage* end = gst_bus_timed_pop_filtered(bus, 20 * GST_SECOND,
                                                 static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    EXPECT_TRUE(end != nullptr && GST_MESSAGE_TYPE(end) == GST_MESSAGE_EOS) << pipeline;
    if (end != nullptr) gst_message_unref(end);
    gst_object_unref(bus);
    gst_element_set_state(running, GST_STATE_NULL);
    gst_object_unref(running);
}

struct Seen {
    int frames = 0;
    int width = 0;
    int height = 0;
    std::array<int, 3> firstPixel{};
    std::string end;  ///< why no more frames came; empty when the source went on
};

/// Looks at the source until it ends, or until it has shown enough.
Seen look(const OpenedSource& source, int enough = 10) {
    Seen seen;
    auto opened = openFrameSource(source);
    if (!opened) {
        seen.end = opened.error();
        return seen;
    }
    for (int tries = 0; tries < 200 && seen.frames < enough; ++tries) {
        const auto came = (*opened)->next(100ms, [&](const Frame& frame) {
            seen.width = frame.width;
            seen.height = frame.height;
            EXPECT_GE(frame.stride, static_cast<std::size_t>(frame.width) * 3);
            EXPECT_EQ(frame.pixels.size(), frame.stride * static_cast<std::size_t>(frame.height));
            seen.firstPixel = {frame.pixels[0], frame.pixels[1], frame.pixels[2]};
            ++seen.frames;
        });
        if (!came) {
            seen.end = came.error();
            break;
        }
    }
    return seen;
}

/// A PNG file that promises a picture of that size and holds none.
void writePngHeader(const std::filesystem::path& file, unsigned char sizeByte) {
    const unsigned char header[] = {0x89,     'P',  'N', 'G', '\r', '\n', 0x1a, '\n',     0,    0, 0,
                                    13,       'I',  'H', 'D', 'R',  0,    0,    sizeByte, 0x20, 0, 0,
                                    sizeByte, 0x20, 8,   2,   0,    0,    0,    0,        0,    0, 0};
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(header), sizeof header);
}

class FrameSources : public ::testing::Test {
protected:
    TemporaryDirectory directory;
    std::filesystem::path file = directory.path() / "frames";
};

}  // namespace

TEST_F(FrameSources, ShowEveryFormatAsRedGreenBlue) {
    struct Case {
        const char* name;
        const char* pipeline;
        bool grey;
    };
    for (const Case& c : {Case{"YUYV", "video/x-raw,format=YUY2,width=64,height=48 ! avimux", false},
                          Case{"planar", "video/x-raw,format=I420,width=70,height=50 ! matroskamux", false},
                          Case{"MJPEG", "video/x-raw,width=64,height=48 ! jpegenc ! avimux", false},
                          Case{"grey", "video/x-raw,format=GRAY8,width=64,height=48 ! matroskamux", true}}) {
        SCOPED_TRACE(c.name);
        record(std::string("videotestsrc num-buffers=3 pattern=red ! ") + c.pipeline, file);
        const Seen seen = look(VideoFile{.path = file});
        EXPECT_EQ(seen.frames, 3);
        EXPECT_THAT(seen.end, HasSubstr("is at its end"));
        if (c.grey) {
            EXPECT_NEAR(seen.firstPixel[0], seen.firstPixel[2], 2);
        } else {
            EXPECT_GT(seen.firstPixel[0], 220);
            EXPECT_LT(seen.firstPixel[1], 60);
            EXPECT_LT(seen.firstPixel[2], 60);
        }
    }
}

TEST_F(FrameSources, ShowAPictureAgainAndAgain) {
    record("videotestsrc num-buffers=1 pattern=blue ! video/x-raw,width=65,height=49 ! pngenc", file);
    const Seen seen = look(Picture{.path = file}, 5);
    EXPECT_EQ(seen.frames, 5);
    EXPECT_EQ(seen.width, 65);
    EXPECT_EQ(seen.height, 49);
    EXPECT_THAT(seen.firstPixel, ElementsAre(0, 0, 255));
}

TEST_F(FrameSources, EndWithAReasonWhereNoFrameComes) {
    const auto write = [&](std::string_view bytes) { std::ofstream(file, std::ios::binary) << bytes; };
    write("");
    EXPECT_THAT(look(VideoFile{.path = file}).end, HasSubstr("the video " + file.string()));
    write("this is neither a video nor a picture");
    EXPECT_THAT(look(VideoFile{.path = file}).end, HasSubstr("delivers no frames"));
    EXPECT_THAT(look(Picture{.path = file}).end, HasSubstr("delivers no frames"));
    EXPECT_NE(look(Picture{.path = directory.path() / "absent"}).end, "");
    EXPECT_NE(look(directory.path() / "no-camera").end, "");
    EXPECT_NE(look(PortalCamera{.fileDescriptor = 0, .node = 1}).end, "") << "no PipeWire, or no such node";
    for (const unsigned char hugeOrTiny : {'\x4e', '\0'}) {  // 20,000 × 20,000; 32 × 32 without a single row
        writePngHeader(file, hugeOrTiny);
        const Seen seen = look(Picture{.path = file});
        EXPECT_EQ(seen.frames, 0);
        EXPECT_NE(seen.end, "");
    }
    record("videotestsrc num-buffers=1 ! video/x-raw,width=1,height=1 ! pngenc", file);
    EXPECT_EQ(look(Picture{.path = file}).frames, 0);
}

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
