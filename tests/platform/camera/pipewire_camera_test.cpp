// The user's camera, found and opened over a real PipeWire.

#include <gio/gunixfdlist.h>
#include <malloc.h>

#include "platform/camera/camera_source.h"
#include "platform/camera/live_pipewire.h"
#include "platform/camera/pipewire/pipewire_remote.h"
#include "platform/camera/pipewire/pipewire_stream.h"
#include "platform/camera/tracked_camera.h"
#include "platform/camera/user_camera.h"
#include "platform/shared/file_descriptor.h"
#include "sensors/distance_tracking.h"

namespace tarvex::camera {
namespace {

using test::LivePipeWire;

/// A desktop portal on the session bus of the test that has cameras, or refuses them.
class SimulatedPortal {
public:
    struct Answers {
        bool hasCamera = true;
        std::function<int()> openRemote = nullptr;  ///< null: it is not allowed
    };

    explicit SimulatedPortal(Answers answers) : answers_(std::move(answers)) {
        g_dbus_connection_add_filter(bus_, receive, &answers_, nullptr);
        bus_.own("org.freedesktop.portal.Desktop");
    }

private:
    /// Called on the bus connection's own thread.
    static GDBusMessage* receive(GDBusConnection* bus, GDBusMessage* message, gboolean incoming, gpointer answering) {
        const char* member = g_dbus_message_get_member(message);
        const std::string_view method = member != nullptr ? member : "";
        if (incoming == FALSE || (method != "Get" && method != "OpenPipeWireRemote")) return message;
        const auto& answers = *static_cast<const Answers*>(answering);
        GDBusMessage* reply = nullptr;
        if (method == "Get") {
            reply = g_dbus_message_new_method_reply(message);
            g_dbus_message_set_body(reply, g_variant_new("(v)", g_variant_new_boolean(answers.hasCamera)));
        } else if (answers.openRemote) {
            reply = g_dbus_message_new_method_reply(message);
            const int remote = answers.openRemote();
            GUnixFDList* descriptors = g_unix_fd_list_new_from_array(&remote, 1);
            g_dbus_message_set_unix_fd_list(reply, descriptors);
            g_object_unref(descriptors);
            g_dbus_message_set_body(reply, g_variant_new("(h)", 0));
        } else {
            reply = g_dbus_message_new_method_error_literal(message, "org.freedesktop.portal.Error.NotAllowed", "no");
        }
        g_dbus_connection_send_message(bus, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
        g_object_unref(reply);
        g_object_unref(message);
        return nullptr;
    }

    Answers answers_;
    const test::BusConnection bus_;
};

std::expected<NamedSource, std::string> open(const Source& source = UserCamera{}) {
    return CameraSource(source).open();
}

/// The size of the first frame, or why none came.
std::string firstFrame(FrameSource& source) {
    std::string seen;
    for (int tries = 0; tries < 20 && seen.empty(); ++tries) {
        const auto came = source.next(100ms, [&](const Frame& frame) {
            seen = std::to_string(frame.width) + "x" + std::to_string(frame.height);
        });
        if (!came) return came.error();
    }
    return seen.empty() ? "nothing" : seen;
}

/// Opens the camera until it delivers frames of that size, as one run after the other does.
NamedSource opened(const std::string& size, const Source& source = UserCamera{}) {
    std::string seen;
    for (int runs = 0; runs < 10; ++runs) {
        auto opened = open(source);
        seen = opened ? firstFrame(*opened->frames) : opened.error();
        if (seen == size) return *std::move(opened);
    }
    throw std::runtime_error(seen);
}

/// Why the source ends, and after what time.
std::pair<std::string, std::chrono::duration<double>> endOf(FrameSource& source) {
    const auto begin = std::chrono::steady_clock::now();
    while (true) {
        const auto came = source.next(50ms, [](const Frame&) {});
        const auto time = std::chrono::steady_clock::now() - begin;
        if (!came) return {came.error(), time};
        if (time > 10s) return {"it goes on", time};
    }
}

bool areListed(const std::vector<std::string>& names) {
    return eventually([&] { return userCameraNames() == names; });
}

}  // namespace

TEST(PipeWireCamera, ShowsItsFramesInEveryFormatAndIsOpenedAgain) {
    const LivePipeWire pipeWire;
    // One that does not answer in time, as on a busy machine, counts as one that has a camera.
    EXPECT_TRUE(eventually([] { return checkUserCamera().has_value() == std::filesystem::exists("/dev/video0"); }));
    using Case = std::tuple<const char*, int, int>;
    for (const auto& [format, width, height] :
         {Case{"YUY2", 640, 480}, Case{"NV12", 1280, 720}, Case{"I420", 320, 240}, Case{"GRAY8", 1920, 1080}}) {
        SCOPED_TRACE(format);
        const auto camera = LivePipeWire::camera("Simulated", {.format = format, .size = {width, height}});
        ASSERT_TRUE(areListed({"Simulated"}));
        EXPECT_TRUE(checkUserCamera());
        for (int run = 0; run < 2; ++run) {
            EXPECT_EQ(opened(std::to_string(width) + "x" + std::to_string(height)).camera, "Simulated")
                << "what a calibration is kept for";
        }
    }
}

TEST(PipeWireCamera, MeasuresAFaceLikeItsPicture) {
    const std::filesystem::path photograph = TARVEX_TEST_PICTURES "/sample1.jpg";
    const LivePipeWire pipeWire;
    const auto camera =
        LivePipeWire::camera("Simulated", {.format = "JPEG", .size = {1920, 1280}, .file = photograph.string()});
    ASSERT_TRUE(areListed({"Simulated"}));
    const auto measured = [](const Options& options) {
        const test::Tracked tracked(options);
        const auto tracking = DistanceTracking::make(*tracked.platform, *tracked.store);
        const auto host = makeHeadlessView();
        tracking->beginMeasurement(host);
        EXPECT_TRUE(eventually([&] { return tracked.store->countTrackingData() == 1; }));
        return tracked.samples().at(0).data;
    };
    EXPECT_EQ(measured({.modelDirectory = TARVEX_FACE_MODELS}),
              measured({.source = Pictures{.paths = {photograph}}, .modelDirectory = TARVEX_FACE_MODELS}));
}

TEST(PipeWireCamera, IsTheOneThatFacesTheUserOrHasTheNameThatIsWanted) {
    const LivePipeWire pipeWire;
    const auto rear = LivePipeWire::camera("Rear", {.size = {64, 48}, .location = "back"});
    ASSERT_TRUE(areListed({"Rear"}));
    const auto plain = LivePipeWire::camera("Plain");
    ASSERT_TRUE(areListed({"Plain", "Rear"}));
    const auto named = LivePipeWire::camera("The FRONT one");
    ASSERT_TRUE(areListed({"The FRONT one", "Plain", "Rear"}));
    EXPECT_EQ(open().value().camera, "The FRONT one");
    EXPECT_EQ(opened("64x48", UserCamera{.name = "Rear"}).camera, "Rear");
    EXPECT_THAT(open(UserCamera{.name = "rear"}).error(), HasSubstr("no camera \"rear\""));
}

TEST(PipeWireCamera, EndsWithinASecondWhenItGoesAndIsNeverWaitedForLongerThanARun) {
    LivePipeWire pipeWire;
    auto camera = LivePipeWire::camera("Simulated");
    ASSERT_TRUE(areListed({"Simulated"}));
    auto source = opened("640x480").frames;
    camera.end();
    auto [why, time] = endOf(*source);
    EXPECT_EQ(why, "the camera \"Simulated\" has gone");
    EXPECT_LT(time, 1s);

    const auto another = LivePipeWire::camera("Simulated");
    ASSERT_TRUE(areListed({"Simulated"}));
    auto begin = std::chrono::steady_clock::now();
    another.signal(SIGSTOP);
    {
        const auto silent = open();
        EXPECT_FALSE(silent.value().frames->next(100ms, [](const Frame&) {}).value());
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s) << "no longer than a run";
    another.signal(SIGCONT);
    opened("640x480");  // it recovers

    begin = std::chrono::steady_clock::now();
    pipeWire.daemon->signal(SIGSTOP);
    EXPECT_EQ(open().error(), "PipeWire does not answer");
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s) << "no longer than a run";
    pipeWire.daemon->signal(SIGCONT);
    source = opened("640x480").frames;  // it recovers
    pipeWire.daemon->end();
    std::tie(why, time) = endOf(*source);
    EXPECT_EQ(why, "PipeWire has ended");
    EXPECT_LT(time, 1s);
}

TEST(PipeWireCamera, MayBeClosedWhileItsFramesWaitForTheConnectionsThread) {
    constexpr int garbage = 0xa5;
    ::mallopt(M_PERTURB, garbage);  // whoever uses what has been freed
    const LivePipeWire pipeWire;
    const auto camera = LivePipeWire::camera("Simulated");
    ASSERT_TRUE(areListed({"Simulated"}));
    const auto remote = PipeWireRemote::connect().value();
    for (int run = 0; run < 10; ++run) {
        auto stream = std::make_unique<PipeWireStream>(remote->connection(), remote->cameras(10s).value().at(0).serial);
        ASSERT_TRUE(eventually([&] { return stream->next(100ms).has_value(); }));
        std::promise<void> held;
        const std::jthread holder([&] {
            const PipeWireConnection::Lock lock(*remote->connection());
            held.set_value();
            std::this_thread::sleep_for(100ms);  // several frames
        });
        held.get_future().wait();
        stream.reset();
    }
    ::mallopt(M_PERTURB, 0);
    EXPECT_FALSE(remote->cameras(10s).value().empty()) << "the connection lives on";
}

TEST(PortalCamera, IsTakenWhereThePortalHasOneAndARefusalEndsTheSearch) {
    const LivePipeWire pipeWire;
    const auto camera = LivePipeWire::camera("Simulated");
    ASSERT_TRUE(areListed({"Simulated"}));
    std::atomic<int> remotes = 0;
    {
        const SimulatedPortal portal({.openRemote = [&] {
            ++remotes;
            return pipeWire.connect();
        }});
        EXPECT_TRUE(checkUserCamera());
        opened("640x480");
        EXPECT_GE(remotes, 1);
    }
    {
        const SimulatedPortal portal({});
        EXPECT_THAT(open().error(), HasSubstr("does not let this host use the camera"));
    }
    const SimulatedPortal portal({.hasCamera = false});
    EXPECT_EQ(open().value().camera, "Simulated") << "PipeWire's own";
}

TEST(PortalCamera, IsOpenedAgainAndAgainOverTheDescriptorThatTheHostHandedOver) {
    const LivePipeWire pipeWire;
    const auto camera = LivePipeWire::camera("Simulated");
    ASSERT_TRUE(areListed({"Simulated"}));
    const platform::FileDescriptor remote(pipeWire.connect());
    for (int run = 0; run < 3; ++run)
        EXPECT_EQ(opened("640x480", PortalCamera{.fileDescriptor = remote.number()}).camera, "Simulated");
    EXPECT_THAT(open(PortalCamera{.fileDescriptor = remote.number(), .node = 99'999}).error(),
                HasSubstr("no such camera"));
    const platform::FileDescriptor noRemote(::open("/dev/null", O_RDWR | O_CLOEXEC));
    EXPECT_FALSE(open(PortalCamera{.fileDescriptor = noRemote.number()}));
}

}  // namespace tarvex::camera
