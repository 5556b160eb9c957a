#include "tarvex/information_view.h"

#include "consent/view_factories.h"
#include "prelude.h"

namespace tarvex {
namespace {

using namespace ui;

const std::string titleKey = "Research Sensor &\nUsage Data Request";
const std::string headlineKey = "\"%@\" would like to collect and share Sensor & Usage Data from your device.";

InformationView viewOf(std::string appName, std::optional<std::string> description, std::vector<DataReader> readers,
                       const std::optional<Url>& url) {
    static platform::Platform platform;
    return InformationViewFactory(platform).informationView(std::move(appName), std::move(description),
                                                            std::move(readers), url, {});
}

Element localized(const std::string& key, std::vector<Modifier> modifiers = {},
                  std::vector<std::string> arguments = {}) {
    return {Text{LocalizedText{key, std::move(arguments)}}, std::move(modifiers)};
}

Element spacer() {
    return {Spacer{std::nullopt}, {}};
}

Element labelled(Element label, std::vector<Modifier> modifiers = {}) {
    return {Button{{std::move(label)}, {}}, std::move(modifiers)};
}

Element row(const std::string& name) {
    const Element bullet{Circle{Color::gray}, {FixedFrame{10, 10, Alignment{}}, Padding{Edges{.trailing = true}, 8}}};
    return {HStack{VerticalAlignment::center, std::nullopt, {bullet, localized("%@", {Font{TextStyle::body}}, {name})}},
            {Padding{Edges{.leading = true}, std::nullopt}}};
}

const std::vector<Modifier> paragraph{Font{TextStyle::body}, Padding{Edges{.top = true, .bottom = true}, std::nullopt},
                                      Padding{Edges{.leading = true, .trailing = true}, 30}};
const Edges allEdges{.top = true, .leading = true, .bottom = true, .trailing = true};

Element requestedData(std::vector<IdentifiedElement> rows) {
    const Element heading = localized("Requested Data", {Bold{}, Font{TextStyle::body}});
    const Element list{VStack{HorizontalAlignment::leading, std::nullopt, {heading, {ForEach{std::move(rows)}, {}}}},
                       {}};
    return {HStack{VerticalAlignment::center, std::nullopt, {list, spacer()}}, {Padding{allEdges, std::nullopt}}};
}

// The screen of the application `appName`, with what is optional and the rows given.
Element screen(const std::string& appName, const std::vector<Element>& optionalElements,
               std::vector<IdentifiedElement> rows) {
    const Element topBar{
        HStack{VerticalAlignment::center,
               std::nullopt,
               {spacer(), labelled(localized("Cancel"), {Padding{Edges{.trailing = true}, std::nullopt},
                                                         Padding{Edges{.top = true}, std::nullopt}})}},
        {}};
    const Element icon{Image{"gearshape.2.fill"},
                       {Resizable{}, ScaledToFit{}, ForegroundColor{Color::blue},
                        FixedFrame{100, std::nullopt, Alignment{}}, Padding{allEdges, std::nullopt}}};
    const FlexibleFrame fullWidth{.maxWidth = std::numeric_limits<double>::infinity()};
    std::vector<Element> children{
        topBar, icon,
        localized(titleKey, {Font{TextStyle::title}, Bold{}, MultilineTextAlignment{HorizontalAlignment::center}}),
        localized(headlineKey, paragraph, {appName})};
    children.insert(children.end(), optionalElements.begin(), optionalElements.end());
    children.push_back(spacer());
    children.push_back(requestedData(std::move(rows)));
    children.push_back(spacer());
    children.push_back(
        labelled(localized("I consent", {Bold{}}),
                 {Padding{allEdges, std::nullopt}, fullWidth, Background{Color::blue, Alignment{}},
                  ForegroundColor{Color::white}, ClipShape{RoundedRectangle{8}}, Padding{allEdges, std::nullopt}}));
    return {VStack{HorizontalAlignment::center, std::nullopt, std::move(children)}, {}};
}

void expectEqual(const InformationView& view, const Element& expected) {
    const Element actual = view.body();
    const auto& shown = std::get<VStack>(actual.content).children;
    const auto& wanted = std::get<VStack>(expected.content).children;
    ASSERT_EQ(shown.size(), wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i)
        EXPECT_TRUE(shown[i] == wanted[i]) << "child " << i + 1;
    EXPECT_TRUE(actual == expected);
}

TEST(InformationView, ShowsWhatTheHostGivesInItsOrderAndNoTraceOfTheRest) {
    const DataReader distance = DataReader::distance(5);
    const DataReader light = DataReader::ambientLight(std::nullopt);
    const auto url = Url::parse("https://example.org/study");
    const Element button = labelled(localized("Learn more..."));
    const auto verbatim = [](const char* text) { return Element{Text{VerbatimText{text}}, paragraph}; };
    const std::string name = "100 % \"light\" %@ \xff";

    expectEqual(
        viewOf("Light Study", "", {distance, light}, url),
        screen("Light Study", {verbatim(""), button}, {{distance, row("Distance")}, {light, row("Ambient Light")}}));
    expectEqual(viewOf(name, std::nullopt, {}, std::nullopt), screen(name, {}, {}));
    expectEqual(viewOf("", "%@ & <b>", {}, std::nullopt), screen("", {verbatim("%@ & <b>")}, {}));
    expectEqual(viewOf("A", std::nullopt, {light, distance, distance}, url),
                screen("A", {button},
                       {{light, row("Ambient Light")}, {distance, row("Distance")}, {distance, row("Distance")}}));
}

}  // namespace
}  // namespace tarvex
