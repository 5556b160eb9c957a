#include <pthread.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <mutex>

#include "platform/portal/portal_application.h"
#include "platform/portal/portal_capture_device.h"
#include "platform/shared/file_descriptor.h"
#include "prelude.h"
#include "scripted_portal.h"
#include "session_bus.h"
#include "tarvex/testing/manual_run_loop.h"
#include "tarvex/testing/recording_application.h"

namespace tarvex::platform {
namespace {

using test::ScriptedPortal;
using test::SessionBus;
using Step = ScriptedPortal::Step;

class Answers {
public:
    std::function<void(bool)> handler() {
        return [this](bool granted) {
            const std::scoped_lock lock(mutex_);
            answers_.push_back(granted);
        };
    }
    std::vector<bool> all() const {
        const std::scoped_lock lock(mutex_);
        return answers_;
    }
    std::optional<bool> only() {
        if (!eventually([this] { return !all().empty(); })) return std::nullopt;
        std::this_thread::sleep_for(20ms);  // room for a second answer, which would be one too many
        return all().size() == 1 ? std::optional<bool>(all().front()) : std::nullopt;
    }

private:
    mutable std::mutex mutex_;
    std::vector<bool> answers_;
};

struct Camera {
    explicit Camera(std::chrono::milliseconds busTimeLimit = PortalRequest::usualBusTimeLimit) {
        device.emplace(loop, [this] { return ++looks > 0; }, busTimeLimit);
    }
    testing::ManualRunLoop loop;
    std::atomic<int> looks = 0;  // where there is no portal
    std::optional<PortalCaptureDevice> device;
};

TEST(PortalCaptureDevice, AnswersOnceWhateverThePortalDoes) {
    struct Case {
        const char* description;
        std::vector<Step> script;
        bool granted;
    };
    const SessionBus bus;
    for (const Case& c :
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
        SCOPED_TRACE(c.description);
        const ScriptedPortal portal(c.script);
        Camera camera;
        Answers answers;
        camera.device->requestAccessForVideo(answers.handler());
        EXPECT_EQ(answers.only(), c.granted);
        EXPECT_FALSE(camera.device->isRequestInProgress());
        EXPECT_EQ(camera.looks, 0);
    }
}

TEST(PortalCaptureDevice, LooksForItselfWhereThereIsNoPortalToAsk) {
    const auto looks = [](std::chrono::milliseconds busTimeLimit = PortalRequest::usualBusTimeLimit) {
        Camera camera(busTimeLimit);
        Answers answers;
        camera.device->requestAccessForVideo(answers.handler());
        EXPECT_EQ(answers.only(), true);
        EXPECT_EQ(camera.looks, 1);
    };
    for (const char* address : {"disabled:", "unix:path=/nonexistent/bus", "no address"}) {
        SCOPED_TRACE(address);
        ::setenv("DBUS_SESSION_BUS_ADDRESS", address, 1);
        looks();
    }
    {
        // A bus that takes connections in, and never sends a byte.
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
        dropped.device->requestAccessForVideo([](bool) { ADD_FAILURE() << "it was to be dropped"; });
    }
    const SessionBus bus;
    looks();
    const ScriptedPortal withoutCamera({}, false);
    looks();
}

TEST(PortalCaptureDevice, DropsWhatIsUnderWayWhenItGoesAndRefusesWhenTheBusGoes) {
    SessionBus bus;
    const ScriptedPortal portal({Step::reply});
    Answers dropped;
    Answers answers;
    Camera camera;
    {
        Camera gone;
        gone.device->requestAccessForVideo(dropped.handler());
        EXPECT_TRUE(eventually([&] { return portal.requestCount() == 1; }));
    }
    camera.device->requestAccessForVideo(answers.handler());
    EXPECT_TRUE(eventually([&] { return portal.requestCount() == 2; }));
    EXPECT_TRUE(camera.device->isRequestInProgress());
    bus.stop();
    EXPECT_EQ(answers.only(), false);
    EXPECT_TRUE(dropped.all().empty());
}

TEST(PortalCaptureDevice, KeepsTwoRequestsApart) {
    const SessionBus bus;
    // The first request is answered after the second one.
    const ScriptedPortal portal({Step::reply, Step::waitForNextRequest, Step::respondSuccess});
    Camera camera;
    Answers first;
    Answers second;
    camera.device->requestAccessForVideo(first.handler());
    EXPECT_TRUE(eventually([&] { return portal.requestCount() == 1; }));
    camera.device->requestAccessForVideo(second.handler());
    EXPECT_EQ(second.only(), true);
    EXPECT_EQ(first.only(), true);
}

/// While it lives, the system refuses new threads: none has room for such a stack.
class NoMoreThreads {
public:
    NoMoreThreads() {
        pthread_getattr_default_np(&usual_);
        pthread_attr_t impossible;
        pthread_attr_init(&impossible);
        pthread_attr_setstacksize(&impossible, std::size_t{1} << 46U);
        pthread_setattr_default_np(&impossible);
        pthread_attr_destroy(&impossible);
    }
    ~NoMoreThreads() {
        pthread_setattr_default_np(&usual_);
        pthread_attr_destroy(&usual_);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

private:
    pthread_attr_t usual_{};
};

TEST(PortalCaptureDevice, RefusesOnTheMainLoopWhenThereIsNoThreadToAskOn) {
    const SessionBus bus;
    const ScriptedPortal portal({Step::reply, Step::respondSuccess});
    Camera camera;
    Answers answers;
    {
        const NoMoreThreads limit;
        camera.device->requestAccessForVideo(answers.handler());
    }
    EXPECT_TRUE(answers.all().empty()) << "not before the request has returned";
    EXPECT_EQ(camera.loop.runPending(), 1U);
    EXPECT_EQ(answers.all(), std::vector{false});
    EXPECT_FALSE(camera.device->isRequestInProgress());
    EXPECT_EQ(camera.looks, 0);

    camera.device->requestAccessForVideo(answers.handler());
    EXPECT_TRUE(eventually([&] { return answers.all() == std::vector{false, true}; }));
}

TEST(PortalApplication, OpensUrlsThroughThePortalAndElseThroughTheFallback) {
    struct Case {
        const char* description;
        std::vector<Step> script;
        std::size_t fallbackCalls;
    };
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
    for (const Case& c : {Case{"opened", {Step::reply, Step::respondSuccess}, 0},
                          Case{"cancelled", {Step::reply, Step::respondCancelled}, 0},
                          Case{"not for the portal", {Step::replyError}, 1}}) {
        SCOPED_TRACE(c.description);
        const ScriptedPortal portal(c.script);
        opens(c.fallbackCalls);
        EXPECT_EQ(portal.openedUrl(), url->string());
    }
}

}  // namespace
}  // namespace tarvex::platform
