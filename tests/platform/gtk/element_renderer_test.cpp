// Any element tree as widgets, and what a host may hand over by mistake or in malice.

#include "platform/gtk/element_renderer.h"

#include "consent_window.h"
#include "platform/gtk/wording.h"
#include "prelude.h"
#include "tarvex/client.h"
#include "tarvex/gtk.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using namespace test;
using namespace ui;
using ::testing::ElementsAre;

constexpr const char* sentence = " would like to collect and share Sensor & Usage Data from your device.";

std::string repeated(const std::string& part, std::size_t times) {
    std::string whole;
    for (std::size_t i = 0; i < times; ++i)
        whole += part;
    return whole;
}

TEST(Wording, ShowsArgumentsAsTheyAre) {
    struct Case {
        const char* description;
        std::string name;
        std::string shown;
    };
    const std::string isolatedName = "\u2068קרן אור\u2069";
    for (const Case& c :
         {Case{"empty", "", ""}, Case{"placeholders", "%@ %s %n 100 %", "%@ %s %n 100 %"},
          Case{"markup", "<b>A & B</b> &amp;", "<b>A & B</b> &amp;"}, Case{"quotes", "\"'„", "\"'„"},
          Case{"emoji", "💡👩‍🔬", "💡👩‍🔬"}, Case{"right to left", "קרן אור", isolatedName},
          Case{"an override", "\u202Egnp", "\u2068\u202Egnp\u2069"},
          Case{"an isolate's end", "\u2069\u202Egnp", "\u2068\u2068\u2069\u202Egnp\u2069"},
          Case{"an isolate's beginning", "\u2067gnp", "\u2068\u2067gnp\u2069\u2069"},
          Case{"an override in a second line", "a\n\u202Egnp", "\u2068a\u2069\n\u2068\u202Egnp\u2069"},
          Case{"long", std::string(10'000, 'x'), std::string(10'000, 'x')},
          Case{"no UTF-8", "a\xff\xc3z", "a\uFFFD\uFFFDz"}, Case{"a zero", std::string("a\0z", 3), "a\uFFFDz"}}) {
        SCOPED_TRACE(c.description);
        const LocalizedText text{.key = std::string("\"%@\"").append(sentence), .arguments = {c.name}};
        EXPECT_EQ(gtk::wording(Text{text}), "\"" + c.shown + "\"" + sentence);
    }
}

TEST(Wording, ComesFromTheHostsDefaultDomainUnlessItsPlaceholdersAreWrong) {
    ::setenv("LC_ALL", "C.UTF-8", 1);
    setlocale(LC_ALL, "");
    struct Case {
        const char* language;
        LocalizedText text;
        const char* shown;
    };
    for (const Case& c :
         {Case{"de", {"Cancel", {}}, "Abbrechen"}, Case{"de", {"Unknown", {}}, "Unknown"}, Case{"de", {"", {}}, ""},
          Case{"de", {"%@", {"Cancel"}}, "Cancel"}, Case{"xx", {"Cancel", {}}, "Cancel"},
          Case{"fr", {"no placeholder: %@", {"A"}}, "no placeholder: A"},
          Case{"fr", {"one placeholder: %@", {"A"}}, "one placeholder: A"},
          Case{"fr", {"moved: %@, %@", {"%@", "B"}}, "%@ puis B, déplacés"}}) {
        SCOPED_TRACE(c.text.key);
        useLanguage(c.language);
        EXPECT_EQ(gtk::wording(Text{c.text}), c.shown);
    }
    useLanguage("de");
    EXPECT_EQ(gtk::wording(Text{VerbatimText{"Cancel"}}), "Cancel") << "never looked up";
}

TEST(Wording, BreaksOnlyWordsThatNoLanguageHas) {
    const std::string chinese = repeated("\u5149\u3002", 1000);
    EXPECT_EQ(gtk::withBreaks(chinese), chinese);
    const std::string word(600, 'x');
    EXPECT_NE(gtk::withBreaks(word), word);
    const std::string accents = repeated("e\u0301", 600);
    EXPECT_EQ(gtk::withBreaks(accents).find("\u200B\u0301"), std::string::npos);
    EXPECT_NE(gtk::withBreaks(accents), accents);
}

TEST(ElementRenderer, LetsTheInnerColourAndFontWin) {
    const VirtualScreen screen;
    ASSERT_TRUE(gtk_init_check());
    const Text gray{VerbatimText{"gray"}};
    const auto colourOf = [](const Element& element) {
        const ConsentWindow window(gtk::render(element));
        GtkWidget* label = widgetsOf(GTK_WIDGET(window.window()), GTK_TYPE_LABEL).front();
        GdkRGBA color{};
        gtk_style_context_get_color(gtk_widget_get_style_context(label), &color);
        int height = 0;
        gtk_widget_measure(label, GTK_ORIENTATION_VERTICAL, -1, nullptr, &height, nullptr, nullptr);
        return std::tuple(color.red, color.green, color.blue, height);
    };
    const ForegroundColor inner{Color::gray};
    const Font body{TextStyle::body};
    const auto expected = colourOf({gray, {inner, body}});
    EXPECT_EQ(colourOf({gray, {inner, ForegroundColor{Color::white}, body, Font{TextStyle::title}}}), expected);
    const Element nested{VStack{.children = {{gray, {inner, body}}}},
                         {ForegroundColor{Color::blue}, Font{TextStyle::title}}};
    EXPECT_EQ(colourOf(nested), expected);
    EXPECT_NE(colourOf({gray, {ForegroundColor{Color::blue}, body}}), expected);
}

TEST(ElementRenderer, LaysOutWhatTheTreeSays) {
    const VirtualScreen screen;
    ASSERT_TRUE(gtk_init_check());
    const Element square{Circle{Color::gray}, {FixedFrame{.width = 20, .height = 20}}};
    const Element row{HStack{.spacing = 4, .children = {square, {Spacer{}, {}}, square}}, {Padding{Edges::all(), 10}}};
    const Element column{
        VStack{.alignment = HorizontalAlignment::trailing,
               .spacing = 0,
               .children = {row,
                            {Image{"gearshape.2.fill"}, {Resizable{}, ScaledToFit{}, FixedFrame{.width = 67}}},
                            {Spacer{}, {}},
                            square,
                            {Spacer{}, {}}}},
        {FlexibleFrame{.maxWidth = std::numeric_limits<double>::infinity()}}};
    const ConsentWindow window(gtk::render(column), {200, 300});
    const auto drawings = widgetsOf(GTK_WIDGET(window.window()), GTK_TYPE_DRAWING_AREA);
    ASSERT_EQ(drawings.size(), 4U);
    const auto at = [&](std::size_t i) { return window.boundsOf(drawings[i]); };
    const auto rect = [](float x, float y, float w, float h) { return graphene_rect_t{{x, y}, {w, h}}; };
    for (const auto& [index, expected] :
         {std::pair{0U, rect(10, 10, 20, 20)}, std::pair{1U, rect(170, 10, 20, 20)},
          std::pair{2U, rect(133, 40, 67, 50)}, std::pair{3U, rect(180, 185, 20, 20)}}) {
        const graphene_rect_t bounds = at(index);
        EXPECT_TRUE(graphene_rect_equal(&bounds, &expected))
            << index << ": " << bounds.origin.x << ", " << bounds.origin.y << ", " << bounds.size.width << " x "
            << bounds.size.height;
    }
}

TEST(ConsentScreen, SurvivesWhatHostsMayHandOver) {
    const VirtualScreen screen;
    TestPlatform platform;
    std::vector<DataReader> many;
    for (int i = 0; i < 1000; ++i)
        many.push_back(i % 3 == 0 ? DataReader::distance(i % 5) : DataReader::ambientLight(std::nullopt));
    struct Case {
        const char* description;
        std::string name;
        std::string text;
        std::vector<DataReader> readers;
    };
    for (const Case& c :
         {Case{"nothing", "", "", {}}, Case{"a long name", std::string(10'000, 'W'), "", {}},
          Case{"a long description", "A", repeated("abcdefghi ", 10'000), {}},
          Case{"one long word", "A", std::string(100'000, 'x'), {}}, Case{"many lines", "A", repeated("a\n", 2000), {}},
          Case{"no UTF-8", "\xff", "\xc3\x28", {}}, Case{"many readers", "A", "", many}}) {
        SCOPED_TRACE(c.description);
        const ConsentWindow window(
            gtk::widget(Client::shared().informationView(c.name, c.text, c.readers, std::nullopt, nullptr)));
        EXPECT_TRUE(window.shows(window.button("I consent")));
        EXPECT_EQ(window.boundsOf(GTK_WIDGET(window.window())).size.width, 360);
        EXPECT_EQ(widgetsOf(gtk_window_get_child(window.window()), GTK_TYPE_LABEL).size(), 6 + c.readers.size());
        window.click(window.button("Cancel"));
    }
}

}  // namespace
}  // namespace tarvex
