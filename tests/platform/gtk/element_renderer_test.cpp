#include "platform/gtk/element_renderer.h"

#include "platform/gtk/wording.h"
#include "prelude.h"
#include "screen.h"

namespace tarvex {
namespace {

using namespace test;
using namespace ui;

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
        EXPECT_EQ(gtk::wording(Text{LocalizedText{.key = "\"%@\" asks.", .arguments = {c.name}}}),
                  "\"" + c.shown + "\" asks.");
    }
}

TEST(Wording, ComesFromTheHostsDefaultDomainUnlessItsPlaceholdersAreWrong) {
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
    std::string chinese;
    std::string accents;
    for (int i = 0; i < 1000; ++i) {
        chinese += "\u5149\u3002";
        accents += "e\u0301";
    }
    EXPECT_EQ(gtk::withBreaks(chinese), chinese);
    EXPECT_THAT(gtk::withBreaks(std::string(600, 'x')), HasSubstr("x\u200Bx"));
    EXPECT_THAT(gtk::withBreaks(accents), AllOf(HasSubstr("\u0301\u200Be"), Not(HasSubstr("\u200B\u0301"))));
}

TEST(ElementRenderer, LetsTheInnerColourAndFontWin) {
    const VirtualScreen screen;
    ASSERT_TRUE(gtk_init_check());
    const Text gray{VerbatimText{"gray"}};
    const auto colourOf = [](const Element& element) {
        const ConsentWindow window(gtk::render(element));
        GtkWidget* label = window.all(GTK_TYPE_LABEL).front();
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

TEST(ElementRenderer, LaysOutStacksSpacersPaddingsAndFrames) {
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
    std::vector<std::array<float, 4>> drawings;
    for (GtkWidget* drawing : window.all(GTK_TYPE_DRAWING_AREA)) {
        const graphene_rect_t bounds = window.boundsOf(drawing);
        drawings.push_back({bounds.origin.x, bounds.origin.y, bounds.size.width, bounds.size.height});
    }
    EXPECT_THAT(drawings, ElementsAre(ElementsAre(10, 10, 20, 20), ElementsAre(170, 10, 20, 20),
                                      ElementsAre(133, 40, 67, 50), ElementsAre(180, 185, 20, 20)));
}

}  // namespace
}  // namespace tarvex
