// What the consent screen looks like, in pictures below the build tree's "pictures", and what must hold in each.

#include "consent_window.h"
#include "prelude.h"
#include "tarvex/client.h"
#include "tarvex/gtk.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using namespace test;

struct Look {
    const char* name;
    const char* language = "en";
    const char* consent = "I consent";
    const char* theme = "Default";
    bool dark = false;
    int textPercent = 100;
    ConsentWindow::Size size = {};
    const char* description = "The study looks at how light and viewing distance change through a working day.";
};

constexpr const char* longGerman =
    "Die Studie untersucht, wie sich Beleuchtungsverhältnisse und Betrachtungsabstände im Verlauf eines "
    "Arbeitstages verändern. Gemessen wird nur, solange die Anwendung geöffnet ist; Kamerabilder verlassen das Gerät "
    "zu keinem Zeitpunkt. Die Datenschutzgrundverordnungsbeauftragte der Forschungsgesellschaft beantwortet Fragen.";

const Look looks[] = {
    {.name = "english"},
    {.name = "german", .language = "de", .consent = "Ich willige ein", .description = longGerman},
    {.name = "hebrew", .language = "he", .consent = "אני מסכים/ה"},
    {.name = "dark", .dark = true},
    {.name = "high-contrast", .theme = "Default-hc"},
    {.name = "high-contrast-dark", .theme = "Default-hc-dark"},
    {.name = "text-200", .textPercent = 200},
    {.name = "short-german-200",
     .language = "de",
     .consent = "Ich willige ein",
     .textPercent = 200,
     .size = {360, 500},
     .description = longGerman},
    {.name = "wide", .size = {1000, 700}},
};

void apply(const Look& look) {
    GtkSettings* settings = gtk_settings_get_default();
    g_object_set(settings, "gtk-theme-name", look.theme, "gtk-application-prefer-dark-theme",
                 static_cast<gboolean>(look.dark), "gtk-xft-dpi", 96 * 1024 * look.textPercent / 100,
                 "gtk-enable-animations", FALSE, nullptr);
    gtk_widget_set_default_direction(std::string(look.language) == "he" ? GTK_TEXT_DIR_RTL : GTK_TEXT_DIR_LTR);
    useLanguage(look.language);
}

double luminance(const GdkRGBA& color) {
    const auto linear = [](double c) { return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    return 0.2126 * linear(color.red) + 0.7152 * linear(color.green) + 0.0722 * linear(color.blue);
}

double contrast(const GdkRGBA& a, const GdkRGBA& b) {
    const double first = luminance(a) + 0.05;
    const double second = luminance(b) + 0.05;
    return std::max(first, second) / std::min(first, second);
}

// A colour of the picture; `x` and `y` in points.
GdkRGBA colorAt(GdkTexture* picture, float x, float y) {
    const auto width = static_cast<std::size_t>(gdk_texture_get_width(picture));
    std::vector<guchar> pixels(width * static_cast<std::size_t>(gdk_texture_get_height(picture)) * 4);
    gdk_texture_download(picture, pixels.data(), width * 4);
    const std::size_t at = (static_cast<std::size_t>(y) * width + static_cast<std::size_t>(x)) * 4;
    const auto part = [&](std::size_t i) { return static_cast<float>(pixels[at + i]) / 255.0F; };
    return {.red = part(2), .green = part(1), .blue = part(0), .alpha = part(3)};
}

GdkRGBA foregroundOf(GtkWidget* widget) {
    GdkRGBA color{};
    gtk_style_context_get_color(gtk_widget_get_style_context(widget), &color);
    return color;
}

void expectReadable(const ConsentWindow& window, GtkWidget* consent) {
    GdkTexture* picture = window.picture();
    const graphene_rect_t button = window.boundsOf(consent);
    GtkWidget* label = widgetsOf(consent, GTK_TYPE_LABEL).front();
    const GdkRGBA shape = colorAt(picture, button.origin.x + 12, button.origin.y + button.size.height / 2);
    const GdkRGBA page = colorAt(picture, 2, 2);
    EXPECT_GE(contrast(shape, foregroundOf(label)), 4.5);
    EXPECT_GE(contrast(page, foregroundOf(widgetsOf(GTK_WIDGET(window.window()), GTK_TYPE_LABEL)[1])), 4.5);
    EXPECT_GE(contrast(page, foregroundOf(widgetsOf(GTK_WIDGET(window.window()), GTK_TYPE_DRAWING_AREA)[0])), 3);
    g_object_unref(picture);
}

TEST(Appearance, FitsAndIsReadableInEachLook) {
    const VirtualScreen screen;
    TestPlatform platform;
    gtk::addTo(*platform);
    ASSERT_TRUE(gtk_init_check());
    std::filesystem::create_directories(TARVEX_TEST_PICTURES);
    for (const Look& look : looks) {
        SCOPED_TRACE(look.name);
        apply(look);
        const ConsentWindow window(
            gtk::widget(Client::shared().informationView("Light Study", look.description,
                                                         {DataReader::distance(5), DataReader::ambientLight(5)},
                                                         Url::parse("https://example.org/"), [](bool) {})),
            look.size);
        window.savePicture(std::filesystem::path(TARVEX_TEST_PICTURES) / (std::string(look.name) + ".png"));

        const graphene_rect_t whole = window.boundsOf(GTK_WIDGET(window.window()));
        EXPECT_EQ(whole.size.width, static_cast<float>(look.size.width));
        EXPECT_EQ(whole.size.height, static_cast<float>(look.size.height));
        GtkWidget* consent = window.button(look.consent);
        EXPECT_TRUE(window.shows(consent));
        for (GtkWidget* label : widgetsOf(GTK_WIDGET(window.window()), GTK_TYPE_LABEL)) {
            const graphene_rect_t bounds = window.boundsOf(label);
            EXPECT_GE(bounds.origin.x, 0) << gtk_label_get_text(GTK_LABEL(label));
            EXPECT_LE(bounds.origin.x + bounds.size.width, whole.size.width);
        }
        GtkWidget* cancel = widgetsOf(GTK_WIDGET(window.window()), GTK_TYPE_BUTTON).front();
        const bool atTheRight = window.boundsOf(cancel).origin.x > whole.size.width / 2;
        EXPECT_EQ(atTheRight, gtk_widget_get_default_direction() == GTK_TEXT_DIR_LTR);
        expectReadable(window, consent);
    }
}

TEST(Appearance, ScrollsByKeyboardToWhatAShortWindowCannotShow) {
    const VirtualScreen screen;
    TestPlatform platform;
    const ConsentWindow window(
        gtk::widget(Client::shared().informationView("Light Study", longGerman, {DataReader::ambientLight(5)},
                                                     std::nullopt, [](bool) {})),
        {360, 400});
    GtkWidget* row = nullptr;
    for (GtkWidget* label : widgetsOf(GTK_WIDGET(window.window()), GTK_TYPE_LABEL)) {
        if (std::string(gtk_label_get_text(GTK_LABEL(label))) == "Ambient Light") row = label;
    }
    ASSERT_NE(row, nullptr);
    GtkWidget* consent = window.button("I consent");
    const auto hidden = [&] { return window.boundsOf(row).origin.y > window.boundsOf(consent).origin.y; };
    EXPECT_TRUE(hidden());
    for (int i = 0; i < 3; ++i)
        ConsentWindow::key("Page_Down");
    runFor(500ms);
    EXPECT_FALSE(hidden());
    EXPECT_TRUE(window.shows(consent));
}

}  // namespace
}  // namespace tarvex
