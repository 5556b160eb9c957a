#include "platform/camera/capture/gst_frame_source.h"

#include "platform/camera/camera_source.h"
#include "platform/camera/recorded_video.h"
#include "platform/camera/simulated_camera.h"
#include "prelude.h"

namespace tarvex::camera {

namespace {

using test::record;
using test::SimulatedCamera;
using ::testing::AllOf;
using ::testing::StartsWith;

struct Seen {
    int frames = 0;
    int width = 0;
    int height = 0;
    std::array<int, 3> firstPixel{};
    std::string end;                         ///< why no more frames came; empty when the source went on
    std::vector<std::pair<int, int>> sizes;  ///< of every frame
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
            seen.sizes.emplace_back(frame.width, frame.height);
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

/// A PNG file that promises a picture of 20,000 × 20,000, every check sum right, and holds no row of it.
void writeHugePng(const std::filesystem::path& file) {
    using namespace std::string_view_literals;
    std::ofstream(file, std::ios::binary) << "\x89PNG\r\n\x1a\n"sv
                                          << "\0\0\0\x0dIHDR\0\0\x4e\x20\0\0\x4e\x20\x08\x02\0\0\0\x6c\x12\xd1\x6e"sv
                                          << "\0\0\0\x02"
                                             "IDAT\x78\x9c\x62\xa4\x91\x2b"sv
                                          << "\0\0\0\0IEND\xae\x42\x60\x82"sv;
}

class FrameSources : public ::testing::Test {
protected:
    TemporaryDirectory directory;
    std::filesystem::path file = directory.path() / "frames";
};

}  // namespace

TEST_F(FrameSources, ShowEveryFormatOfACameraAsRedGreenBlue) {
    struct Case {
        const char* format;
        int width;
        int height;
        bool grey = false;
    };
    for (const Case& c : {Case{"video/x-raw,format=YUY2,width=640,height=480", 640, 480},
                          Case{"video/x-raw,format=NV12,width=640,height=480", 640, 480},
                          Case{"video/x-raw,format=I420,width=70,height=50", 70, 50},
                          Case{"video/x-raw,width=640,height=480 ! jpegenc", 640, 480},
                          Case{"video/x-raw,format=GRAY8,width=64,height=48", 64, 48, true}}) {
        SCOPED_TRACE(c.format);
        const SimulatedCamera camera(std::string("videotestsrc pattern=red ! ") + c.format);
        const Seen seen = look(file, 3);
        EXPECT_EQ(seen.end, "");
        EXPECT_THAT(seen.sizes, AllOf(SizeIs(3), Each(Pair(c.width, c.height))));
        if (c.grey) {
            EXPECT_NEAR(seen.firstPixel[0], seen.firstPixel[2], 2);
        } else {
            EXPECT_GT(seen.firstPixel[0], 220);
            EXPECT_LT(seen.firstPixel[1], 60);
            EXPECT_LT(seen.firstPixel[2], 60);
        }
    }
}

TEST_F(FrameSources, EndWithAReasonWhenACameraFailsWhileItRuns) {
    const SimulatedCamera camera("videotestsrc ! video/x-raw,width=64,height=48 ! identity error-after=4");
    const Seen seen = look(file);
    EXPECT_GT(seen.frames, 0);
    EXPECT_THAT(seen.end, StartsWith("the camera " + file.string() + " delivers no frames"));
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
    EXPECT_THAT(look(Picture{.path = directory.path() / "absent"}).end, HasSubstr("delivers no frames"));
    const auto node = directory.path() / "no-camera";
    EXPECT_THAT(look(node).end, StartsWith("the camera " + node.string() + " delivers no frames"));
    EXPECT_THAT(look(PipeWireNode{.remote = 0, .node = 1}).end,
                AnyOf(HasSubstr("\"pipewiresrc\""), HasSubstr("delivers no frames")))
        << "no PipeWire, or no such node";
    const auto refusal = [](const Source& source) { return CameraSource(source).open().error(); };
    EXPECT_THAT(refusal(CameraDevice{.node = file}), HasSubstr("is no camera"));
    EXPECT_THAT(refusal(CameraDevice{.node = node}), HasSubstr("cannot be opened"));
    EXPECT_THAT(refusal(PortalCamera{}), HasSubstr("handed over no camera"));
    EXPECT_THAT(refusal(PortalCamera{.fileDescriptor = -1}), HasSubstr("handed over no camera"));
    record("videotestsrc num-buffers=0 ! video/x-raw,width=64,height=48 ! matroskamux", file);
    const Seen seen = look(VideoFile{.path = file});
    EXPECT_EQ(seen.frames, 0);
    EXPECT_THAT(seen.end, HasSubstr("is at its end"));
}

TEST_F(FrameSources, RefuseFramesBeyondTheirBoundsAndNameThem) {
    struct Case {
        const char* size;
        bool fits;
    };
    for (const Case& c :
         {Case{"width=4096,height=16", true}, Case{"width=4097,height=16", false}, Case{"width=16,height=4097", false},
          Case{"width=15,height=16", false}, Case{"width=1,height=1", false}}) {
        SCOPED_TRACE(c.size);
        record(std::string("videotestsrc num-buffers=1 ! video/x-raw,") + c.size + " ! pngenc", file);
        const Seen seen = look(Picture{.path = file}, 1);
        EXPECT_EQ(seen.frames, c.fits ? 1 : 0);
        EXPECT_EQ(seen.end.contains("delivers no frames that are 16 to 4096 pixels wide and high"), !c.fits)
            << seen.end;
    }
    writeHugePng(file);
    EXPECT_THAT(look(Picture{.path = file}).end, HasSubstr("delivers no frames"));
}

TEST_F(FrameSources, GoOnWhenAStreamChangesItsSize) {
    record(
        "videotestsrc num-buffers=2 ! video/x-raw,width=64,height=48 ! jpegenc ! joined. "
        "videotestsrc num-buffers=2 ! video/x-raw,width=96,height=80 ! jpegenc ! joined. concat name=joined ! "
        "multipartmux",
        file);
    const Seen seen = look(VideoFile{.path = file});
    EXPECT_THAT(seen.sizes, ElementsAre(Pair(64, 48), Pair(64, 48), Pair(96, 80), Pair(96, 80)));
    EXPECT_THAT(seen.end, HasSubstr("is at its end"));
}

}  // namespace tarvex::camera
