#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>

#include "platform/portal/portal_services.h"
#include "platform/portal/video_devices.h"
#include "platform/shared/file_descriptor.h"
#include "scripted_portal.h"
#include "session_bus.h"
#include "tarvex/testing/manual_run_loop.h"
#include "tarvex/testing/recording_application.h"

namespace tarvex::platform {
namespace {

using test::ScriptedPortal;
using test::SessionBus;
using Step = ScriptedPortal::Step;

struct Camera {
    explicit Camera(std::chrono::milliseconds busTimeLimit = PortalRequest::usualBusTimeLimit)
        : device(loop, [this] { return ++looks > 0; }, busTimeLimit) {}

    void request() {
        device.requestAccessForVideo([this](bool granted) {
            const std::lock_guard lock(mutex);
            answers.push_back(granted);
        });
    }
    std::vector<bool> all() {
        const std::lock_guard lock(mutex);
        return answers;
    }
    std::optional<bool> only() {
        if (!eventually([this] { return !all().empty(); })) return std::nullopt;
        std::this_thread::sleep_for(20ms);  // room for a second answer, which would be one too many
        return all().size() == 1 ? std::optional<bool>(all().front()) : std::nullopt;
    }

    std::mutex mutex;
    std::vector<bool> answers;
    testing::ManualRunLoop loop;
    std::atomic<int> looks = 0;  // where there is no portal
    PortalCaptureDevice device;
};

TEST(PortalCaptureDevice, AnswersOnceWhateverThePortalDoes) {
    using Case = std::tuple<const char*, std::vector<Step>, bool>;
    const SessionBus bus;
    for (const auto& [description, script, granted] :
         {Case{"granted", {Step::reply, Step::respondSuccess}, true},
          Case{"denied or cancelled", {Step::reply, Step::respondCancelled}, false},
          Case{"ended otherwise", {Step::reply, Step::respondOtherwise}, false},
          Case{"error reply", {Step::replyError}, false},
          Case{"response before the reply", {Step::respondSuccess, Step::reply}, true},
          Case{"another handle", {Step::replyOtherHandle, Step::respondSuccess}, true},
          Case{"somebody else's response first", {Step::reply, Step::respondToElse, Step::respondCancelled}, false},
          Case{"two responses", {Step::reply, Step::respondCancelled, Step::respondSuccess}, false},
          Case{"dies before the reply", {Step::die}, false},
          Case{"dies before the response", {Step::reply, Step::die}, false}}) {
        SCOPED_TRACE(description);
        const ScriptedPortal portal(script);
        Camera camera;
        camera.request();
        EXPECT_EQ(camera.only(), granted);
        EXPECT_FALSE(camera.device.isRequestInProgress());
        EXPECT_EQ(camera.looks, 0);
    }
}

TEST(PortalCaptureDevice, LooksForItselfWhereThereIsNoPortalToAsk) {
    const auto looks = [](std::chrono::milliseconds busTimeLimit = PortalRequest::usualBusTimeLimit) {
        Camera camera(busTimeLimit);
        camera.request();
        EXPECT_EQ(camera.only(), true);
        EXPECT_EQ(camera.looks, 1);
    };
    for (const char* address : {"disabled:", "unix:path=/nonexistent/bus", "no address"}) {
        SCOPED_TRACE(address);
        ::setenv("DBUS_SESSION_BUS_ADDRESS", address, 1);
        looks();
    }
    {
        // A bus that accepts connections, and never sends a byte.
        const TemporaryDirectory directory;
        const std::string path = directory.path() / "bus";
        sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
        path.copy(static_cast<char*>(address.sun_path), sizeof(address.sun_path) - 1);
        const FileDescriptor bus(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(::bind(bus.number(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
        ASSERT_EQ(::listen(bus.number(), 8), 0);
        ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
        looks(200ms);
        Camera dropped;
        dropped.device.requestAccessForVideo([](bool) { ADD_FAILURE() << "called for a dropped request"; });
    }
    const SessionBus bus;
    looks();
    const ScriptedPortal withoutCamera({}, false);
    looks();
}

TEST(PortalCaptureDevice, DropsRequestsWhenItGoesAndRefusesThemWhenTheBusGoes) {
    SessionBus bus;
    const ScriptedPortal portal({Step::reply});
    Camera camera;
    {
        Camera gone;
        gone.device.requestAccessForVideo([](bool) { ADD_FAILURE() << "called for a dropped request"; });
        EXPECT_TRUE(eventually([&] { return portal.requestCount() == 1; }));
    }
    camera.request();
    EXPECT_TRUE(eventually([&] { return portal.requestCount() == 2; }));
    EXPECT_TRUE(camera.device.isRequestInProgress());
    bus.stop();
    EXPECT_EQ(camera.only(), false);
}

TEST(PortalCaptureDevice, KeepsTwoRequestsApart) {
    const SessionBus bus;
    // The first request is answered after the second one.
    const ScriptedPortal portal({Step::reply, Step::waitForNextRequest, Step::respondSuccess});
    Camera camera;
    camera.request();
    EXPECT_TRUE(eventually([&] { return portal.requestCount() == 1; }));
    camera.request();
    EXPECT_TRUE(eventually([&] { return camera.all() == std::vector{true, true}; }));
}

TEST(PortalCaptureDevice, RefusesOnTheMainLoopWhenThereIsNoThreadToAskOn) {
    const SessionBus bus;
    const ScriptedPortal portal({Step::reply, Step::respondSuccess});
    Camera camera;
    pthread_attr_t usual;
    pthread_attr_t impossible;
    pthread_getattr_default_np(&usual);
    pthread_attr_init(&impossible);
    pthread_attr_setstacksize(&impossible, std::size_t{1} << 46U);  // more than an address space holds
    pthread_setattr_default_np(&impossible);
    camera.request();
    pthread_setattr_default_np(&usual);
    EXPECT_TRUE(camera.all().empty()) << "not before the request has returned";
    EXPECT_EQ(camera.loop.runPending(), 1U);
    EXPECT_EQ(camera.all(), std::vector{false});
    EXPECT_FALSE(camera.device.isRequestInProgress());
    EXPECT_EQ(camera.looks, 0);

    camera.request();
    EXPECT_TRUE(eventually([&] { return camera.all() == std::vector{false, true}; }));
}

TEST(PortalApplication, OpensUrlsThroughThePortalAndElseThroughTheFallback) {
    const auto url = Url::parse("https://example.org/study?a=%20b");
    const auto opens = [&](std::size_t fallbackCalls) {
        testing::ManualRunLoop loop;
        auto made = std::make_unique<testing::RecordingApplication>();
        const auto& fallback = *made;
        PortalApplication application(loop, std::move(made));
        application.openUrl(*url);
        EXPECT_TRUE(eventually([&] { return !application.isOpeningUrl(); }));
        std::this_thread::sleep_for(20ms);  // room for the fallback
        loop.runPending();
        EXPECT_EQ(fallback.openedUrls().size(), fallbackCalls);
    };
    opens(1);
    const SessionBus bus;
    opens(1);
    for (const auto& [script, fallbackCalls] : {std::pair{std::vector{Step::reply, Step::respondSuccess}, 0U},
                                                {std::vector{Step::reply, Step::respondCancelled}, 0U},
                                                {std::vector{Step::replyError}, 1U}}) {
        const ScriptedPortal portal(script);
        opens(fallbackCalls);
        EXPECT_EQ(portal.openedUrl(), url->string());
    }
}

TEST(VideoDevices, AreTheNumberedNodesInTheirOrderAndTheirUseFollowsThoseThatTheUserMayOpen) {
    using Names = std::vector<std::string>;
    using Case = std::tuple<Names, Names, bool, std::vector<std::filesystem::path>>;
    for (const auto& [usable, unusable, granted, nodes] :
         {Case{{}, {}, true, {}}, Case{{}, {"video", "videoX", "vide0", "video1x", "media0"}, true, {}},
          Case{{"video0"}, {}, true, {"video0"}}, Case{{}, {"video0"}, false, {"video0"}},
          Case{{"video10"}, {"video2"}, true, {"video2", "video10"}}}) {
        SCOPED_TRACE(::testing::PrintToString(usable) + ::testing::PrintToString(unusable));
        const TemporaryDirectory devices;
        for (const std::string& name : usable)
            writeFile(devices.path() / name, "");
        // A node without a device behind it: opening it fails for every user, root included.
        for (const std::string& name : unusable)
            std::filesystem::create_symlink("gone", devices.path() / name);
        EXPECT_EQ(mayUseCamera(devices.path()), granted);
        auto found = videoDeviceNodes(devices.path());
        for (auto& node : found)
            node = node.lexically_relative(devices.path());
        EXPECT_EQ(found, nodes);
        EXPECT_THAT(videoDeviceNodes(devices.path() / "absent"), IsEmpty());
    }
}

}  // namespace
}  // namespace tarvex::platform
