#include "platform/camera/capture/frame_source.h"

#include "platform/camera/camera_source.h"
#include "platform/camera/capture/frame_decoder.h"
#include "platform/camera/scripted_frame_source.h"

namespace tarvex::camera {

namespace {

using test::record;
using ::testing::AllOf;
using ::testing::StartsWith;

/// While it lives, GStreamer's camera source is a simulated one: whatever the device's path, it delivers the frames of
/// the pipeline. One at a time.
class SimulatedCamera {
public:
    explicit SimulatedCamera(const std::string& pipeline) {
        gst_init(nullptr, nullptr);
        description = pipeline + " ! identity";  // an element to end with, where the pipeline ends with a format
        real_ = gst_registry_lookup_feature(gst_registry_get(), "v4l2src");
        static const GType type = g_type_register_static_simple(
            GST_TYPE_BIN, "TarvexSimulatedCamera", sizeof(GstBinClass), initializeClass, sizeof(GstBin), fill, {});
        EXPECT_TRUE(gst_element_register(nullptr, "v4l2src", GST_RANK_NONE, type));
    }
    ~SimulatedCamera() {
        GstPluginFeature* simulated = gst_registry_lookup_feature(gst_registry_get(), "v4l2src");
        gst_registry_remove_feature(gst_registry_get(), simulated);
        gst_object_unref(simulated);
        if (real_ != nullptr) gst_registry_add_feature(gst_registry_get(), real_);
    }
    SimulatedCamera(const SimulatedCamera&) = delete;
    SimulatedCamera& operator=(const SimulatedCamera&) = delete;

private:
    static void initializeClass(void* type, void* /*data*/) {
        // Accepted as by the real element; which device it names makes no difference.
        G_OBJECT_CLASS(type)->set_property = [](GObject*, guint, const GValue*, GParamSpec*) {};
        g_object_class_install_property(G_OBJECT_CLASS(type), 1,
                                        g_param_spec_string("device", nullptr, nullptr, nullptr, G_PARAM_WRITABLE));
        gst_element_class_add_pad_template(
            GST_ELEMENT_CLASS(type), gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, gst_caps_new_any()));
        gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(type), "Simulated camera", "Source/Video", "-", "-");
    }
    static void fill(GTypeInstance* camera, void* /*type*/) {
        GstElement* inside = gst_parse_bin_from_description(description.c_str(), TRUE, nullptr);
        ASSERT_NE(inside, nullptr) << description;
        gst_bin_add(GST_BIN(camera), inside);
        GstPad* pad = gst_element_get_static_pad(inside, "src");
        gst_element_add_pad(GST_ELEMENT(camera), gst_ghost_pad_new("src", pad));
        gst_object_unref(pad);
    }

    static inline std::string description;
    GstPluginFeature* real_ = nullptr;  ///< absent where GStreamer has no camera source
};

struct Seen {
    std::vector<std::pair<int, int>> sizes;  ///< of every frame
    std::array<int, 3> firstPixel{};
    std::string end;  ///< why no more frames came; empty when the source went on
};

/// Looks at the source until it ends, or until it has shown enough.
Seen look(const OpenedSource& source, std::size_t enough = 10) {
    Seen seen;
    auto opened = openFrameSource(source);
    if (!opened) seen.end = opened.error();
    for (int tries = 0; tries < 200 && seen.sizes.size() < enough && seen.end.empty(); ++tries) {
        const auto came = (*opened)->next(100ms, [&](const Frame& frame) {
            EXPECT_GE(frame.stride, static_cast<std::size_t>(frame.width) * 3);
            EXPECT_EQ(frame.pixels.size(), frame.stride * static_cast<std::size_t>(frame.height));
            seen.sizes.emplace_back(frame.width, frame.height);
            seen.firstPixel = {frame.pixels[0], frame.pixels[1], frame.pixels[2]};
        });
        if (!came) seen.end = came.error();
    }
    return seen;
}

class FrameSources : public ::testing::Test {
protected:
    TemporaryDirectory directory;
    std::filesystem::path file = directory.path() / "frames";
};

}  // namespace

TEST_F(FrameSources, ShowEveryFormatOfACameraAsRedGreenBlue) {
    using Case = std::tuple<const char*, int, int>;
    for (const auto& [format, width, height] : {Case{"video/x-raw,format=YUY2,width=640,height=480", 640, 480},
                                                Case{"video/x-raw,format=NV12,width=640,height=480", 640, 480},
                                                Case{"video/x-raw,format=I420,width=70,height=50", 70, 50},
                                                Case{"video/x-raw,width=640,height=480 ! jpegenc", 640, 480},
                                                Case{"video/x-raw,format=GRAY8,width=64,height=48", 64, 48}}) {
        SCOPED_TRACE(format);
        const SimulatedCamera camera(std::string("videotestsrc pattern=red ! ") + format);
        const Seen seen = look(file, 3);
        EXPECT_EQ(seen.end, "");
        EXPECT_THAT(seen.sizes, AllOf(SizeIs(3), Each(Pair(width, height))));
        const bool isGrey = std::string_view(format).contains("GRAY8");
        EXPECT_EQ(seen.firstPixel[0] > 220, !isGrey);
        EXPECT_LT(isGrey ? std::abs(seen.firstPixel[0] - seen.firstPixel[2]) : seen.firstPixel[2], isGrey ? 3 : 60);
    }
}

TEST_F(FrameSources, ShowAPictureAgainAndAgain) {
    record("videotestsrc num-buffers=1 pattern=blue ! video/x-raw,width=65,height=49 ! pngenc", file);
    const Seen seen = look(Picture{.path = file}, 5);
    EXPECT_THAT(seen.sizes, AllOf(SizeIs(5), Each(Pair(65, 49))));
    EXPECT_THAT(seen.firstPixel, ElementsAre(0, 0, 255));
}

TEST_F(FrameSources, EndWithAReasonWhereNoFrameComes) {
    {
        const SimulatedCamera camera("videotestsrc ! video/x-raw,width=64,height=48 ! identity error-after=4");
        const Seen seen = look(file);
        EXPECT_THAT(seen.sizes, Not(IsEmpty())) << "it fails while it runs";
        EXPECT_THAT(seen.end, StartsWith("the camera " + file.string() + " delivers no frames"));
    }
    writeFile(file, "");
    EXPECT_THAT(look(Video{.path = file}).end, HasSubstr("the video " + file.string()));
    writeFile(file, "this is neither a video nor a picture");
    const auto absent = directory.path() / "absent";
    for (const OpenedSource& source : {OpenedSource(Video{.path = file}), OpenedSource(Picture{.path = file}),
                                       OpenedSource(Picture{.path = absent})})
        EXPECT_THAT(look(source).end, HasSubstr("delivers no frames"));
    EXPECT_THAT(look(absent).end, StartsWith("the camera " + absent.string() + " delivers no frames"));
    const auto refusal = [](const Source& source) { return CameraSource(source).open().error(); };
    EXPECT_THAT(refusal(CameraDevice{.node = file}), HasSubstr("is no camera"));
    EXPECT_THAT(refusal(CameraDevice{.node = absent}), HasSubstr("cannot be opened"));
    EXPECT_THAT(refusal(PortalCamera{}), HasSubstr("handed over no camera"));
    EXPECT_THAT(refusal(PortalCamera{.fileDescriptor = -1}), HasSubstr("handed over no camera"));
    record("videotestsrc num-buffers=0 ! video/x-raw,width=64,height=48 ! matroskamux", file);
    EXPECT_THAT(look(Video{.path = file}).end, HasSubstr("is at its end"));
}

TEST_F(FrameSources, RefuseFramesBeyondTheirBoundsAndNameThem) {
    for (const auto& [size, fits] : {std::pair{"width=4096,height=16", true},
                                     {"width=4097,height=16", false},
                                     {"width=16,height=4097", false},
                                     {"width=15,height=16", false},
                                     {"width=1,height=1", false}}) {
        SCOPED_TRACE(size);
        record(std::string("videotestsrc num-buffers=1 ! video/x-raw,") + size + " ! pngenc", file);
        const Seen seen = look(Picture{.path = file}, 1);
        EXPECT_EQ(seen.sizes.size(), fits ? 1U : 0U);
        EXPECT_EQ(seen.end.contains("delivers no frames that are 16 to 4096 pixels wide and high"), !fits) << seen.end;
    }
    using namespace std::string_view_literals;
    // A PNG that promises 20,000 × 20,000 pixels, every check sum right, and holds no row of them.
    std::ofstream(file, std::ios::binary) << "\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR\0\0\x4e\x20\0\0\x4e\x20\x08\x02\0\0\0"sv
                                          << "\x6c\x12\xd1\x6e\0\0\0\x02"
                                             "IDAT\x78\x9c\x62\xa4\x91\x2b\0\0\0\0IEND\xae\x42\x60\x82"sv;
    EXPECT_THAT(look(Picture{.path = file}).end, HasSubstr("delivers no frames"));
}

TEST_F(FrameSources, GoOnWhenAStreamChangesItsSize) {
    record(
        "videotestsrc num-buffers=2 ! video/x-raw,width=64,height=48 ! jpegenc ! joined. "
        "videotestsrc num-buffers=2 ! video/x-raw,width=96,height=80 ! jpegenc ! joined. concat name=joined ! "
        "multipartmux",
        file);
    const Seen seen = look(Video{.path = file});
    EXPECT_THAT(seen.sizes, ElementsAre(Pair(64, 48), Pair(64, 48), Pair(96, 80), Pair(96, 80)));
    EXPECT_THAT(seen.end, HasSubstr("is at its end"));
}

TEST(FrameDecoder, TakesEveryLayoutOfTheRowsAndLeavesOutFramesThatAreNotWhatTheySay) {
    const auto decoded = [](const CameraFrame& frame, std::chrono::milliseconds patience) {
        std::array<int, 3> pixel{-1, -1, -1};
        auto decoder = FrameDecoder::open("the camera").value();
        EXPECT_TRUE(decoder.decode(frame, patience, [&](const Frame& shown) {
            EXPECT_EQ(std::pair(shown.width, shown.height), std::pair(frame.width, frame.height));
            const auto* last = &shown.pixels[shown.stride * 47 + 63 * 3];
            pixel = {last[0], last[1], last[2]};
        }));
        return pixel;
    };
    const auto frame = [](const char* format, std::vector<CameraFrame::Plane> planes, std::size_t size) {
        return CameraFrame{.format = format,
                           .width = 64,
                           .height = 48,
                           .planes = std::move(planes),
                           .bytes = std::vector<std::uint8_t>(size, 0x80)};
    };
    for (const CameraFrame& whole :
         {frame("GRAY8", {{0, 64}}, 64 * 48), frame("GRAY8", {{0, 0}}, 64 * 48), frame("GRAY8", {{9, 80}}, 9 + 80 * 48),
          frame("YUY2", {{0, 128}}, 128 * 48), frame("NV12", {{0, 64}}, 64 * 72), frame("NV12", {{0, 96}}, 96 * 72),
          frame("I420", {{0, 64}}, 64 * 72), frame("I420", {{0, 96}}, 96 * 72),
          frame("NV12", {{64 * 24, 64}, {0, 64}}, 64 * 72), frame("RGB", {{0, 192}}, 192 * 48)}) {
        SCOPED_TRACE(whole.format + " " + std::to_string(whole.planes.front().stride));
        EXPECT_THAT(decoded(whole, 10s), Each(AllOf(::testing::Ge(0x7e), ::testing::Le(0x84))));
    }
    CameraFrame flat = frame("GRAY8", {{0, 64}}, 64 * 48);
    flat.height = 0;
    CameraFrame huge = frame("GRAY8", {{0, 64}}, 64 * 48);
    huge.height = 1 << 30;
    for (const CameraFrame& broken :
         {flat, huge, frame("GRAY8", {}, 64 * 48), frame("GRAY8", {{0, 64}}, 64 * 48 - 1),
          frame("GRAY8", {{1, 64}}, 64 * 48), frame("GRAY8", {{0, 63}}, 64 * 48), frame("GRAY8", {{0, -64}}, 64 * 48),
          frame("GRAY8", {{0, 1 << 30}}, 64 * 48), frame("NV12", {{0, 64}, {64 * 49, 64}}, 64 * 72),
          frame("I420", {{0, 64}, {SIZE_MAX, 32}, {0, 32}}, 64 * 72), frame("XYZ", {{0, 64}}, 64 * 48),
          frame("JPEG", {{0, 0}}, 64), frame("JPEG", {}, 0)})
        EXPECT_THAT(decoded(broken, 200ms), Each(-1));
}

}  // namespace tarvex::camera
