// The consent screen under real clicks and keys, to a screen reader, and in pictures below the build tree's "pictures".

#include "platform/portal/scripted_portal.h"
#include "prelude.h"
#include "screen.h"
#include "session_bus.h"
#include "tarvex/client.h"
#include "tarvex/gtk.h"
#include "tarvex/testing/recording_application.h"
#include "tarvex/testing/scripted_capture_device.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using namespace test;

const std::vector<DataReader> bothReaders{DataReader::distance(5), DataReader::ambientLight(5)};

GtkWidget* makeScreen(const std::string& description, std::function<void(bool)> completion = {}) {
    return gtk::widget(Client::shared().informationView(
        "Light Study", description, bothReaders, Url::parse("https://example.org/study"), std::move(completion)));
}

TEST(ConsentScreen, WorksFromTheKeyboardInReadingOrderWithVisibleFocus) {
    const VirtualScreen screen;
    const TestPlatform platform;
    testing::ScriptedCaptureDevice* camera = nullptr;
    testing::RecordingApplication* application = nullptr;
    TestPlatform::set(&platform::Platform::setCaptureDevice, camera);
    TestPlatform::set(&platform::Platform::setApplication, application);
    std::vector<bool> decisions;
    const ConsentWindow window(makeScreen("Why we ask.", [&](bool decision) { decisions.push_back(decision); }));
    std::vector<std::string> order;
    ConsentWindow::key("shift+Tab");  // from the first, which has the focus from the start
    for (int i = 0; i < 3; ++i) {
        ConsentWindow::key("Tab");
        GtkWidget* focus = gtk_window_get_focus(window.window());
        ASSERT_NE(focus, nullptr);
        order.push_back(textsOf(focus).front());
        EXPECT_TRUE((gtk_widget_get_state_flags(focus) & GTK_STATE_FLAG_FOCUS_VISIBLE) != 0);
        EXPECT_TRUE(window.shows(focus));
        ConsentWindow::key(i == 0 ? "space" : "Return");
    }
    EXPECT_THAT(order, ElementsAre("Cancel", "Learn more...", "I consent"));
    EXPECT_THAT(decisions, ElementsAre(false));
    EXPECT_EQ(application->openedUrls().size(), 1U);
    EXPECT_EQ(camera->requestCount(), 1U);
}

TEST(ConsentScreen, CausesNoWakeUpsWhileIdle) {
    static int wakeUps = 0;
    const VirtualScreen screen;
    const TestPlatform platform;
    gtk::addTo(*platform);
    const ConsentWindow window(makeScreen("Why we ask."));
    runFor(2000ms);
    g_main_context_set_poll_func(nullptr, [](GPollFD* descriptors, guint count, gint timeout) {
        ++wakeUps;
        return g_poll(descriptors, count, timeout);
    });
    runFor(3000ms);
    EXPECT_LE(wakeUps, 2) << "one of them is this test's own";
}

// On a desktop: the library's own services, and a portal that asks the user.
TEST(ConsentScreen, StoresTheFlagsAndNothingElseWhenThePortalGrantsAndNothingWhenItRefuses) {
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

TEST(ConsentScreen, IsReadOnTheAccessibilityBusInReadingOrderUnderItsNames) {
    g_set_prgname("consent_screen");
    const SessionBus bus("/usr/share/dbus-1/services");  // which starts the accessibility bus on demand
    ::setenv("GTK_A11Y", "atspi", 1);
    const VirtualScreen screen;
    const TestPlatform platform;
    const ConsentWindow window(makeScreen("Why we ask."));
    std::string spoken;  // complete some time after the window is shown
    runUntil([&] {
        spoken = VirtualScreen::run({TARVEX_SCREEN_READER, "consent_screen"});
        return spoken.contains("I consent");
    });
    EXPECT_EQ(spoken,
              "button: Cancel\nlabel: Cancel\nheading: Research Sensor & Usage Data Request\n"
              "label: \"Light Study\" would like to collect and share Sensor & Usage Data from your device.\n"
              "label: Why we ask.\nbutton: Learn more...\nlabel: Learn more...\nlabel: Requested Data\n"
              "label: Distance\nlabel: Ambient Light\nbutton: I consent\nlabel: I consent\n");
}

constexpr const char* shortText = "The study looks at how light and viewing distance change through a working day.";
constexpr const char* longGerman =
    "Die Studie untersucht, wie sich Beleuchtungsverhältnisse und Betrachtungsabstände im Verlauf eines "
    "Arbeitstages verändern. Gemessen wird nur, solange die Anwendung geöffnet ist; Kamerabilder verlassen das Gerät "
    "zu keinem Zeitpunkt. Die Datenschutzgrundverordnungsbeauftragte der Forschungsgesellschaft beantwortet Fragen.";

double luminance(const GdkRGBA& color) {
    const auto linear = [](double c) { return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    return 0.2126 * linear(color.red) + 0.7152 * linear(color.green) + 0.0722 * linear(color.blue);
}

// Of what a widget draws in its foreground colour, before a point of the picture.
double contrast(GtkWidget* widget, GdkTexture* picture, double x, double y) {
    const auto width = static_cast<std::size_t>(gdk_texture_get_width(picture));
    std::vector<guchar> pixels(width * static_cast<std::size_t>(gdk_texture_get_height(picture)) * 4);
    gdk_texture_download(picture, pixels.data(), width * 4);
    const guchar* pixel = &pixels[(static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x)) * 4];
    const auto part = [pixel](int i) { return static_cast<float>(pixel[i]) / 255.0F; };
    GdkRGBA color{};
    gtk_style_context_get_color(gtk_widget_get_style_context(widget), &color);
    const auto [darker, lighter] = std::minmax({luminance(color), luminance({part(2), part(1), part(0), 1})});
    return (lighter + 0.05) / (darker + 0.05);
}

TEST(ConsentScreen, FitsAndIsReadableInEachLook) {
    const VirtualScreen screen;
    const TestPlatform platform;
    ASSERT_TRUE(gtk_init_check());
    struct Look {
        const char* name;
        const char* language = "en";
        const char* consent = "I consent";
        const char* theme = "Default";
        bool dark = false;
        int textPercent = 100;
        ConsentWindow::Size size = {};
        const char* description = shortText;
    };
    const char* german = "Ich willige ein";
    for (const Look& look : {Look{.name = "english"}, Look{.name = "dark", .dark = true},
                             Look{.name = "german", .language = "de", .consent = german, .description = longGerman},
                             Look{.name = "hebrew", .language = "he", .consent = "אני מסכים/ה"},
                             Look{.name = "high-contrast", .theme = "Default-hc"},
                             Look{.name = "high-contrast-dark", .theme = "Default-hc-dark"},
                             Look{.name = "text-200", .textPercent = 200}, Look{.name = "wide", .size = {1000, 700}},
                             Look{"short-german-200", "de", german, "Default", false, 200, {360, 500}, longGerman}}) {
        SCOPED_TRACE(look.name);
        const bool toTheLeft = std::string(look.language) == "he";
        g_object_set(gtk_settings_get_default(), "gtk-theme-name", look.theme, "gtk-application-prefer-dark-theme",
                     static_cast<gboolean>(look.dark), "gtk-xft-dpi", 96 * 1024 * look.textPercent / 100,
                     "gtk-enable-animations", FALSE, nullptr);
        gtk_widget_set_default_direction(toTheLeft ? GTK_TEXT_DIR_RTL : GTK_TEXT_DIR_LTR);
        useLanguage(look.language);
        const ConsentWindow window(makeScreen(look.description), look.size);
        const auto picture = window.picture(std::string(TARVEX_TEST_PICTURES "/") + look.name + ".png");

        const auto width = static_cast<float>(look.size.width);
        const graphene_rect_t whole = window.boundsOf(GTK_WIDGET(window.window()));
        EXPECT_EQ(whole.size.width, width);
        EXPECT_EQ(whole.size.height, static_cast<float>(look.size.height));
        GtkWidget* consent = window.button(look.consent);
        EXPECT_TRUE(window.shows(consent));
        const auto labels = window.all(GTK_TYPE_LABEL);
        for (GtkWidget* label : labels) {
            const graphene_rect_t bounds = window.boundsOf(label);
            EXPECT_GE(bounds.origin.x, 0) << gtk_label_get_text(GTK_LABEL(label));
            EXPECT_LE(bounds.origin.x + bounds.size.width, width);
        }
        const bool cancelIsAtTheRight = window.boundsOf(labels.front()).origin.x > width / 2;
        EXPECT_EQ(cancelIsAtTheRight, !toTheLeft);
        const graphene_rect_t button = window.boundsOf(consent);
        const double middle = button.origin.y + button.size.height / 2;
        EXPECT_GE(contrast(labels.back(), picture.get(), button.origin.x + 12, middle), 4.5);
        EXPECT_GE(contrast(labels[1], picture.get(), 2, 2), 4.5);
        EXPECT_GE(contrast(window.all(GTK_TYPE_DRAWING_AREA).front(), picture.get(), 2, 2), 3);
    }
}

TEST(ConsentScreen, ScrollsByKeyboardToTheContentThatAShortWindowCannotShow) {
    const VirtualScreen screen;
    const TestPlatform platform;
    const ConsentWindow window(makeScreen(longGerman), {360, 400});
    const auto labels = window.all(GTK_TYPE_LABEL);
    GtkWidget* lastReader = labels[labels.size() - 2];
    GtkWidget* consent = window.button("I consent");
    const auto hidden = [&] { return window.boundsOf(lastReader).origin.y > window.boundsOf(consent).origin.y; };
    EXPECT_TRUE(hidden());
    for (int i = 0; i < 3; ++i)
        ConsentWindow::key("Page_Down");
    runFor(500ms);
    EXPECT_FALSE(hidden());
    EXPECT_TRUE(window.shows(consent));
}

TEST(ConsentScreen, SurvivesTheTextsAndReadersOfEveryHost) {
    const VirtualScreen screen;
    const TestPlatform platform;
    std::vector<DataReader> many;
    for (int i = 0; i < 1000; ++i)
        many.push_back(i % 3 == 0 ? DataReader::distance(i % 5) : DataReader::ambientLight(std::nullopt));
    std::string lines(4000, 'a');
    std::string words(100'000, 'a');
    for (std::size_t i = 1; i < lines.size(); i += 2)
        lines[i] = '\n';
    for (std::size_t i = 9; i < words.size(); i += 10)
        words[i] = ' ';
    struct Case {
        const char* description;
        std::string name;
        std::string text;
        std::vector<DataReader> readers;
    };
    for (const Case& c : {Case{"nothing", "", "", {}}, Case{"a long name", std::string(10'000, 'W'), "", {}},
                          Case{"a long description", "A", words, {}}, Case{"many lines", "A", lines, {}},
                          Case{"one long word", "A", std::string(100'000, 'x'), {}},
                          Case{"no UTF-8", "\xff", "\xc3\x28", {}}, Case{"many readers", "A", "", many}}) {
        SCOPED_TRACE(c.description);
        const ConsentWindow window(
            gtk::widget(Client::shared().informationView(c.name, c.text, c.readers, std::nullopt, nullptr)));
        EXPECT_TRUE(window.shows(window.button("I consent")));
        EXPECT_EQ(window.boundsOf(GTK_WIDGET(window.window())).size.width, 360);
        EXPECT_EQ(window.all(GTK_TYPE_LABEL).size(), 6 + c.readers.size());
        window.click(window.button("Cancel"));
    }
}

}  // namespace
}  // namespace tarvex
