// Going to the background, as a window manager sees it.

#include "platform/gtk/background_detector.h"
#include "platform/gtk/foreground_rule.h"
#include "prelude.h"
#include "screen.h"
#include "tarvex/gtk.h"
#include "tarvex/testing/recording_application.h"
#include "tarvex/testing/scripted_capture_device.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using namespace test;

TEST(ForegroundRule, TakesAWindowWithoutFocusForEvidenceOnlyWhereAKeyboardCouldFocusIt) {
    using enum gtk::ForegroundRule::Presence;
    using Evidence = gtk::ForegroundRule::Evidence;
    constexpr bool keyboard = true;
    constexpr bool touch = false;
    struct Case {
        const char* description;
        std::vector<std::pair<gtk::ForegroundRule::Presence, bool>> seen;
        Evidence expected;
    };
    for (const Case& c :
         {Case{"never shown", {{hidden, keyboard}}, Evidence::none},
          Case{"never active", {{visible, keyboard}, {visible, keyboard}}, Evidence::none},
          Case{"hidden without a keyboard", {{visible, touch}, {hidden, touch}}, Evidence::hidden},
          Case{"another is active", {{active, keyboard}, {visible, keyboard}}, Evidence::unfocused},
          Case{"shown again", {{active, keyboard}, {hidden, keyboard}, {visible, keyboard}}, Evidence::none},
          Case{"keyboard taken off", {{active, keyboard}, {visible, keyboard}, {visible, touch}}, Evidence::none},
          Case{"put on again", {{active, keyboard}, {visible, touch}, {visible, keyboard}}, Evidence::unfocused}}) {
        gtk::ForegroundRule rule;
        Evidence last{};
        for (const auto& [presence, hasKeyboard] : c.seen)
            last = rule.see(presence, hasKeyboard);
        EXPECT_EQ(last, c.expected) << c.description;
        rule.leave();
        EXPECT_EQ(rule.see(c.seen.back().first, c.seen.back().second), Evidence::none) << "it has left already";
    }
}

class Background : public ::testing::Test {
protected:
    // Stands for the usual five seconds.
    void begin(std::chrono::milliseconds timeWithoutFocus = 300ms) {
        TestPlatform::set(&platform::Platform::setCaptureDevice, camera);
        TestPlatform::set(&platform::Platform::setApplication, application);
        gtk::postBackground(*platform, timeWithoutFocus);
        gtk::addTo(*platform);
        token = platform->notificationCenter().addObserverForName(platform::applicationDidEnterBackground, [this] {
            ++transitions;
            EXPECT_EQ(std::this_thread::get_id(), mainThread);
        });
        gtk_init_check();
        settle();
        EXPECT_EQ(transitions, 0) << "a process without a window never was in the foreground";
    }
    ~Background() override {
        if (camera != nullptr) platform->notificationCenter().removeObserver(token);
    }

    static GtkWidget* content() { return gtk_label_new("Study"); }
    static void settle() {
        while (g_main_context_iteration(nullptr, FALSE) != 0) {
        }
    }
    static bool isActive(const ConsentWindow& window) { return gtk_window_is_active(window.window()) != 0; }

    VirtualScreen screen;
    TestPlatform platform;
    testing::ScriptedCaptureDevice* camera = nullptr;
    testing::RecordingApplication* application = nullptr;
    platform::NotificationCenter::ObserverToken token{};
    std::thread::id mainThread = std::this_thread::get_id();
    int transitions = 0;
};

TEST_F(Background, IsEnteredOnceWhenEveryWindowIsMinimisedWhateverTheSystemAsks) {
    begin();
    const ConsentWindow first(content());
    const ConsentWindow second(content());
    const auto minimise = [&](const ConsentWindow& window) {
        gtk_window_minimize(window.window());
        EXPECT_TRUE(runUntil([&] {
            auto* surface = GDK_TOPLEVEL(gtk_native_get_surface(GTK_NATIVE(window.window())));
            return (gdk_toplevel_get_state(surface) & GDK_TOPLEVEL_STATE_MINIMIZED) != 0;
        }));
        settle();
    };
    camera->requestAccessForVideo([](bool) {});
    minimise(first);
    EXPECT_EQ(transitions, 0) << "one window is still there";
    minimise(second);
    EXPECT_EQ(transitions, 1);

    gtk_window_unminimize(second.window());
    second.activate();
    minimise(second);
    EXPECT_EQ(transitions, 2);
}

TEST_F(Background, IsEnteredBeforeTheLoopEndsButNotWhenOneWindowFollowsAnother) {
    begin();
    auto first = std::make_unique<ConsentWindow>(content());
    first.reset();
    auto* second = GTK_WINDOW(gtk_window_new());
    gtk_window_present(second);
    g_signal_connect(second, "destroy", G_CALLBACK(+[] { gtk_window_present(GTK_WINDOW(gtk_window_new())); }), nullptr);
    gtk_window_close(second);
    settle();
    EXPECT_EQ(transitions, 0);
    auto* third = GTK_WINDOW(g_list_model_get_item(gtk_window_get_toplevels(), 0));
    g_object_unref(third);  // the list keeps it
    gtk_widget_set_visible(GTK_WIDGET(third), FALSE);
    settle();
    EXPECT_EQ(transitions, 1);

    gtk_window_present(third);
    GMainLoop* loop = g_main_loop_new(nullptr, FALSE);
    g_signal_connect_swapped(third, "destroy", G_CALLBACK(g_main_loop_quit), loop);
    g_idle_add_once([](gpointer window) { gtk_window_close(GTK_WINDOW(window)); }, third);
    g_main_loop_run(loop);
    EXPECT_EQ(transitions, 2) << "the user closed it";
    g_main_loop_unref(loop);

    GtkApplication* host = gtk_application_new("org.example.host", G_APPLICATION_NON_UNIQUE);
    g_signal_connect(host, "activate", G_CALLBACK(+[](GtkApplication* self) {
                         gtk_window_present(GTK_WINDOW(gtk_application_window_new(self)));
                         g_idle_add_once([](gpointer running) { g_application_quit(G_APPLICATION(running)); }, self);
                     }),
                     nullptr);
    g_signal_connect_swapped(host, "shutdown", G_CALLBACK(+[](const int* count) { EXPECT_EQ(*count, 2); }),
                             &transitions);
    g_application_run(G_APPLICATION(host), 0, nullptr);
    EXPECT_EQ(transitions, 3) << "the application ended";
    g_object_unref(host);
}

TEST_F(Background, IsEnteredSomeTimeAfterTheFocusWentElsewhere) {
    constexpr auto time = 2s;
    begin(time);
    const ConsentWindow window(content());
    const auto loseFocus = [&] {
        auto other = showOtherApplication();
        EXPECT_TRUE(runUntil([&] { return !isActive(window); }));
        return other;
    };
    loseFocus();
    window.activate();
    runFor(time);
    EXPECT_EQ(transitions, 0) << "it came back in time";

    const auto other = loseFocus();
    const auto lost = std::chrono::steady_clock::now();
    EXPECT_TRUE(runUntil([&] { return transitions == 1; }));
    EXPECT_GT(std::chrono::steady_clock::now() - lost, time / 2);
    gtk_widget_set_visible(GTK_WIDGET(window.window()), FALSE);
    settle();
    EXPECT_EQ(transitions, 1) << "it had left already";
}

TEST_F(Background, IsNotEnteredForTheTimeOfTheSystemsOwnDialog) {
    constexpr auto time = 300ms;
    begin(time);
    const ConsentWindow window(content());
    int expected = 0;
    for (const bool asksForCamera : {true, false}) {
        if (asksForCamera)
            camera->requestAccessForVideo([](bool) {});
        else
            application->setOpeningUrl(true);
        const auto dialog = showOtherApplication();
        ASSERT_TRUE(runUntil([&] { return !isActive(window); }));
        runFor(3 * time);
        camera->answerNext();
        application->setOpeningUrl(false);
        EXPECT_EQ(transitions, expected) << "the time with the dialog does not count";
        EXPECT_TRUE(runUntil([&] { return transitions > expected; })) << "the focus did not come back";
        EXPECT_EQ(transitions, ++expected);
        window.activate();
    }
}

}  // namespace
}  // namespace tarvex
