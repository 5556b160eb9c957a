// Going to the background, as a window manager sees it.

#include "consent_window.h"
#include "other_application.h"
#include "prelude.h"
#include "tarvex/gtk.h"
#include "test_platform.h"
#include "testing/recording_application.h"
#include "testing/scripted_capture_device.h"

namespace tarvex {
namespace {

using namespace test;

class Background : public ::testing::Test {
protected:
    Background() {
        auto device = std::make_unique<testing::ScriptedCaptureDevice>();
        camera = device.get();
        platform->setCaptureDevice(std::move(device));
        auto opener = std::make_unique<testing::RecordingApplication>();
        application = opener.get();
        platform->setApplication(std::move(opener));
        gtk::addTo(*platform);
        gtk::addTo(*platform);
        token = platform->notificationCenter().addObserverForName(platform::applicationDidEnterBackground, [this] {
            ++transitions;
            EXPECT_EQ(std::this_thread::get_id(), mainThread);
        });
        gtk_init_check();
        runFor(100ms);
        EXPECT_EQ(transitions, 0) << "a process without a window never was in the foreground";
    }
    ~Background() override { platform->notificationCenter().removeObserver(token); }

    static GtkWidget* content() { return gtk_label_new("Study"); }

    VirtualScreen screen;
    TestPlatform platform;
    testing::ScriptedCaptureDevice* camera = nullptr;
    testing::RecordingApplication* application = nullptr;
    platform::NotificationCenter::ObserverToken token{};
    std::thread::id mainThread = std::this_thread::get_id();
    int transitions = 0;
};

bool isActive(const ConsentWindow& window) {
    return gtk_window_is_active(window.window()) != 0;
}

TEST_F(Background, IsEnteredOnceWhenEveryWindowIsMinimised) {
    const ConsentWindow first(content());
    const ConsentWindow second(content());
    gtk_window_minimize(first.window());
    runFor(500ms);
    EXPECT_EQ(transitions, 0) << "one window is still there";
    gtk_window_minimize(second.window());
    EXPECT_TRUE(runUntil([&] { return transitions == 1; }));
    runFor(300ms);
    EXPECT_EQ(transitions, 1);

    gtk_window_unminimize(second.window());
    second.activate();
    gtk_window_minimize(second.window());
    EXPECT_TRUE(runUntil([&] { return transitions == 2; }));
}

TEST_F(Background, IsEnteredWhenTheLastWindowIsHiddenButNotWhenOneFollowsAnother) {
    auto first = std::make_unique<ConsentWindow>(content());
    first.reset();
    const ConsentWindow second(content());
    EXPECT_EQ(transitions, 0);
    gtk_widget_set_visible(GTK_WIDGET(second.window()), FALSE);
    EXPECT_TRUE(runUntil([&] { return transitions == 1; }));
    gtk_widget_set_visible(GTK_WIDGET(second.window()), TRUE);
    second.activate();
    EXPECT_EQ(transitions, 1);
}

TEST_F(Background, IsEnteredFiveSecondsAfterTheFocusWentElsewhere) {
    const ConsentWindow window(content());
    {
        const OtherApplication other;
        ASSERT_TRUE(runUntil([&] { return !isActive(window); }));
        runFor(2000ms);
    }
    window.activate();
    runFor(4000ms);
    EXPECT_EQ(transitions, 0) << "it came back in time";

    const OtherApplication other;
    ASSERT_TRUE(runUntil([&] { return !isActive(window); }));
    runFor(4000ms);
    EXPECT_EQ(transitions, 0);
    EXPECT_TRUE(runUntil([&] { return transitions == 1; }));
    runFor(6000ms);
    EXPECT_EQ(transitions, 1);
}

TEST_F(Background, IsNotEnteredForTheSystemsOwnDialog) {
    const ConsentWindow window(content());
    camera->requestAccessForVideo([](bool) {});
    const OtherApplication dialog;
    ASSERT_TRUE(runUntil([&] { return !isActive(window); }));
    runFor(4500ms);
    camera->answerNext();
    runFor(4500ms);
    EXPECT_EQ(transitions, 0) << "the time with the dialog does not count";
    EXPECT_TRUE(runUntil([&] { return transitions == 1; })) << "the focus did not come back";
}

TEST_F(Background, IsNotEnteredWhileALinkIsBeingOpened) {
    const ConsentWindow window(content());
    application->setOpeningUrl(true);
    const OtherApplication dialog;
    ASSERT_TRUE(runUntil([&] { return !isActive(window); }));
    runFor(6000ms);
    application->setOpeningUrl(false);
    EXPECT_EQ(transitions, 0);
    EXPECT_TRUE(runUntil([&] { return transitions == 1; })) << "the focus did not come back";
}

}  // namespace
}  // namespace tarvex
