// The consent screen under real clicks and keys.

#include "consent_window.h"
#include "platform/portal/scripted_portal.h"
#include "prelude.h"
#include "session_bus.h"
#include "tarvex/client.h"
#include "tarvex/gtk.h"
#include "tarvex/testing/recording_application.h"
#include "tarvex/testing/scripted_capture_device.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using namespace test;
using ::testing::ElementsAre;

const std::vector<DataReader> bothReaders{DataReader::distance(5), DataReader::ambientLight(5)};

class ConsentScreen : public ::testing::Test {
protected:
    ConsentScreen() {
        auto device = std::make_unique<testing::ScriptedCaptureDevice>();
        camera = device.get();
        auto opener = std::make_unique<testing::RecordingApplication>();
        application = opener.get();
        platform->setCaptureDevice(std::move(device));
        platform->setApplication(std::move(opener));
        gtk::addTo(*platform);
        controller = Client::shared().informationViewController(
            "Light Study", "Why we ask.", bothReaders, Url::parse("https://example.org/study"),
            [this](bool decision) { decisions.push_back(decision); });
        window.emplace(gtk::widget(*controller));
    }

    VirtualScreen screen;
    TestPlatform platform;
    testing::ScriptedCaptureDevice* camera = nullptr;
    testing::RecordingApplication* application = nullptr;
    std::shared_ptr<ViewController> controller;
    std::optional<ConsentWindow> window;
    std::vector<bool> decisions;
};

TEST_F(ConsentScreen, WorksFromTheKeyboardInReadingOrderWithVisibleFocus) {
    std::vector<std::string> order;
    ConsentWindow::key("shift+Tab");  // from the first, which has the focus from the start
    for (int i = 0; i < 3; ++i) {
        ConsentWindow::key("Tab");
        GtkWidget* focus = gtk_window_get_focus(window->window());
        ASSERT_NE(focus, nullptr);
        order.push_back(textsOf(focus).front());
        EXPECT_TRUE((gtk_widget_get_state_flags(focus) & GTK_STATE_FLAG_FOCUS_VISIBLE) != 0);
        EXPECT_TRUE(window->shows(focus));
        ConsentWindow::key(i == 0 ? "space" : "Return");
    }
    EXPECT_THAT(order, ElementsAre("Cancel", "Learn more...", "I consent"));
    EXPECT_THAT(decisions, ElementsAre(false));
    EXPECT_EQ(application->openedUrls().size(), 1U);
    EXPECT_EQ(camera->requestCount(), 1U);
}

TEST_F(ConsentScreen, CausesNoWakeUpsWhileIdle) {
    static int wakeUps = 0;
    runFor(2000ms);
    g_main_context_set_poll_func(nullptr, [](GPollFD* descriptors, guint count, gint timeout) {
        ++wakeUps;
        return g_poll(descriptors, count, timeout);
    });
    runFor(3000ms);
    EXPECT_LE(wakeUps, 2) << "one of them is this test's own";
}

// What a person meets on a desktop: the library's own services, and a portal that asks.
TEST(SystemConsentScreen, StoresTheFlagsAndNothingElseWhenThePortalGrantsAndNothingWhenItRefuses) {
    using Step = ScriptedPortal::Step;
    const SessionBus bus;
    const VirtualScreen screen;
    const TemporaryDirectory directory;
    const auto keys = [file = (directory.path() / "UserDefaults.sqlite").string()] {
        return VirtualScreen::run({"sqlite3", file, "SELECT key FROM user_defaults ORDER BY key"});
    };
    auto system = platform::Platform::makeLinux({.dataDirectory = directory.path()});
    gtk::addTo(*system);
    ASSERT_TRUE(platform::Platform::install(std::move(system)));
    std::atomic<int> granted = 0;
    std::atomic<int> refused = 0;
    std::atomic<bool> decidedOnMain = true;
    const auto controller = Client::shared().informationViewController(
        "Light Study", "Why we ask.", bothReaders, Url::parse("https://example.org/study"),
        [&, main = std::this_thread::get_id()](bool decision) {
            decidedOnMain = std::this_thread::get_id() == main;
            ++(decision ? granted : refused);
        });
    const ConsentWindow window(gtk::widget(*controller));
    {
        const ScriptedPortal portal({Step::reply, Step::respondCancelled});
        window.click(window.button("I consent"));
        EXPECT_TRUE(runUntil([&] { return refused == 1; }));
        EXPECT_FALSE(decidedOnMain);
        EXPECT_EQ(keys(), "userID\n");
    }
    const ScriptedPortal portal({Step::reply, Step::respondSuccess});
    window.click(window.button("Learn more..."));
    EXPECT_TRUE(runUntil([&] { return portal.requestCount() == 1; }));
    EXPECT_EQ(portal.openedUrl(), "https://example.org/study");
    for (int time = 1; time <= 2; ++time) {
        window.click(window.button("I consent"));
        EXPECT_TRUE(runUntil([&] { return granted == time; }));
        EXPECT_EQ(portal.requestCount(), time + 1);
        EXPECT_TRUE(Client::shared().hasConsentedToTracking(bothReaders[0]));
        EXPECT_TRUE(Client::shared().hasConsentedToTracking(bothReaders[1]));
    }
    window.click(window.button("Cancel"));
    EXPECT_EQ(refused, 2);
    EXPECT_TRUE(decidedOnMain);
    EXPECT_EQ(keys(), "hasConsentedToTrackAmbientLight\nhasConsentedToTrackDistance\nuserID\n");
    EXPECT_FALSE(std::filesystem::exists(directory.path() / "TrackingDataContainer.sqlite"));
}

}  // namespace
}  // namespace tarvex
