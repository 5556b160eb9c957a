#include "tarvex/client.h"
#include "tarvex/testing/recording_application.h"
#include "tarvex/testing/scripted_capture_device.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using namespace ui;

const DataReader distance = DataReader::distance(std::nullopt);
const DataReader light = DataReader::ambientLight(5);

// The elements of a tree in their order: each without its children, which follow it.
std::vector<Element> flattened(Element element) {
    std::vector<Element> children;
    if (auto* row = std::get_if<HStack>(&element.content)) children.swap(row->children);
    if (auto* column = std::get_if<VStack>(&element.content)) children.swap(column->children);
    if (auto* button = std::get_if<Button>(&element.content)) children.swap(button->label);
    if (auto* list = std::get_if<ForEach>(&element.content)) {
        for (const IdentifiedElement& row : std::exchange(list->rows, {})) {
            children.push_back({Text{VerbatimText{std::to_string(std::hash<DataReader>{}(row.identity))}}, {}});
            children.push_back(row.element);
        }
    }
    std::vector<Element> flat{std::move(element)};
    for (const Element& child : children)
        std::ranges::copy(flattened(child), std::back_inserter(flat));
    return flat;
}

Element localized(std::string key, std::vector<Modifier> modifiers = {}, std::vector<std::string> arguments = {}) {
    return {Text{LocalizedText{std::move(key), std::move(arguments)}}, std::move(modifiers)};
}

class ConsentScreen : public ::testing::Test {
protected:
    ConsentScreen() {
        platform.set(&platform::Platform::setCaptureDevice, camera, std::deque{true, false, true, true});
        platform.set(&platform::Platform::setApplication, application);
    }

    // The host's callback: notes the decision, with the flags as they are then.
    std::function<void(bool)> decide() {
        return [this](bool decision) {
            std::string flags;
            for (const DataReader& reader : {distance, light})
                if (client().hasConsentedToTracking(reader)) flags += " " + std::string(reader.id());
            decisions.push_back((decision ? "yes" : "no") + flags);
        };
    }
    static Client& client() { return Client::shared(); }
    InformationView view(std::vector<DataReader> readers) {
        return client().informationView("Study", {}, std::move(readers), Url::parse("https://example.org/"), decide());
    }

    static void press(const InformationView& view, const std::string& name) {
        const auto elements = flattened(view.body());
        const auto found = std::ranges::find_if(elements, [&](const Element& element) {
            const auto* button = std::get_if<Button>(&element.content);
            return button && button->name == name;
        });
        ASSERT_NE(found, elements.end());
        std::get<Button>(found->content).action();
    }
    void consent(std::vector<DataReader> readers) {
        decisions.clear();
        press(view(std::move(readers)), "consent");
        EXPECT_THAT(decisions, IsEmpty()) << "before the answer";
        EXPECT_TRUE(camera->answerNext());
    }

    test::TestPlatform platform;
    testing::ScriptedCaptureDevice* camera = nullptr;
    testing::RecordingApplication* application = nullptr;
    std::vector<std::string> decisions;
};

TEST_F(ConsentScreen, ShowsTheHostsTextsAndReadersInTheirOrder) {
    using Case = std::tuple<std::string, std::optional<std::string>, std::vector<DataReader>, std::optional<Url>>;
    const auto url = Url::parse("https://example.org/study");
    const Padding everywhere{{true, true, true, true}};
    const std::vector<Modifier> paragraph{Font{TextStyle::body}, Padding{{.top = true, .bottom = true}},
                                          Padding{{.leading = true, .trailing = true}, 30}};
    const Element spacer{Spacer{}, {}};
    for (const auto& [name, description, readers, link] :
         {Case{"Study", "", {distance, light}, url}, Case{"100 % \"light\" %@ \xff", {}, {}, {}},
          Case{"", "%@ & <b>", {}, {}}, Case{"A", {}, {light, distance, distance}, url}}) {
        std::vector<Element> expected{
            {VStack{}, {}},
            {HStack{}, {}},
            spacer,
            {Button{}, {Padding{{.trailing = true}}, Padding{{.top = true}}}},
            localized("Cancel"),
            {Image{"gearshape.2.fill"},
             {Resizable{}, ScaledToFit{}, ForegroundColor{Color::blue}, FixedFrame{.width = 100}, everywhere}},
            localized("Research Sensor &\nUsage Data Request",
                      {Font{TextStyle::title}, Bold{}, MultilineTextAlignment{HorizontalAlignment::center}}),
            localized("\"%@\" would like to collect and share Sensor & Usage Data from your device.", paragraph,
                      {name})};
        if (description) expected.push_back({Text{VerbatimText{*description}}, paragraph});
        if (link) expected.insert(expected.end(), {{Button{}, {}}, localized("Learn more...")});
        expected.insert(expected.end(), {spacer,
                                         {HStack{}, {everywhere}},
                                         {VStack{.alignment = HorizontalAlignment::leading, .children = {}}, {}},
                                         localized("Requested Data", {Bold{}, Font{TextStyle::body}}),
                                         {ForEach{}, {}}});
        for (const DataReader& reader : readers)
            expected.insert(
                expected.end(),
                {{Text{VerbatimText{std::to_string(std::hash<DataReader>{}(reader))}}, {}},
                 {HStack{}, {Padding{{.leading = true}}}},
                 {Circle{Color::gray}, {FixedFrame{.width = 10, .height = 10}, Padding{{.trailing = true}, 8}}},
                 localized("%@", {Font{TextStyle::body}}, {reader == light ? "Ambient Light" : "Distance"})});
        expected.insert(
            expected.end(),
            {spacer,
             spacer,
             {Button{},
              {everywhere, FlexibleFrame{.maxWidth = std::numeric_limits<double>::infinity()}, Background{Color::blue},
               ForegroundColor{Color::white}, ClipShape{RoundedRectangle{8}}, everywhere}},
             localized("I consent", {Bold{}})});
        EXPECT_EQ(flattened(client().informationView(name, description, readers, link, {}).body()), expected) << name;
    }
}

TEST_F(ConsentScreen, NamesTheHostFromItsBundleOnlyWhenNoNameIsGiven) {
    using Case = std::tuple<std::optional<std::string>, const char*, const char*>;
    for (const auto& [given, strings, name] :
         {Case{"Given", "<key>CFBundleDisplayName</key><string>Display</string>", "Given"},
          Case{"", "<key>CFBundleDisplayName</key><string>Display</string>", ""},
          Case{{}, "<key>CFBundleDisplayName</key><string>D</string><key>CFBundleName</key><string>N</string>", "D"},
          Case{{}, "<key>CFBundleDisplayName</key><string></string><key>CFBundleName</key><string>N</string>", ""},
          Case{{}, "<key>CFBundleName</key><string>N</string>", "N"}, Case{{}, "", "Unknown"}}) {
        platform.writeInfoPlist(strings);
        const auto controller = client().informationViewController(given, {}, {}, {}, {});
        EXPECT_EQ(controller->rootView().body(), client().informationView(name, {}, {}, {}, {}).body()) << name;
        EXPECT_NE(client().informationViewController(given, {}, {}, {}, {}), controller) << "each call makes one";
    }
}

TEST_F(ConsentScreen, ButtonsActAndConsentStoresTheFlagOfEachReaderBeforeTheHostLearnsAndNeverTakesOneBack) {
    press(view({light}), "cancel");
    EXPECT_THAT(decisions, ElementsAre("no"));
    EXPECT_EQ(camera->requestCount(), 0U);
    press(view({light}), "learn-more");
    EXPECT_THAT(application->openedUrls(), ElementsAre("https://example.org/"));
    EXPECT_THAT(decisions, SizeIs(1));
    consent({});
    EXPECT_THAT(decisions, ElementsAre("yes"));
    consent({distance, light});
    EXPECT_THAT(decisions, ElementsAre("no")) << "refused";
    consent({light});
    EXPECT_THAT(decisions, ElementsAre("yes ambient_light"));
    consent({distance, light, distance});
    EXPECT_THAT(decisions, ElementsAre("yes distance ambient_light"));
    EXPECT_TRUE(platform.defaults->boolForKey("hasConsentedToTrackDistance"));
    EXPECT_TRUE(platform.defaults->boolForKey("hasConsentedToTrackAmbientLight"));
    consent({distance});
    press(view({}), "cancel");
    EXPECT_THAT(decisions, ElementsAre("no distance ambient_light", "no distance ambient_light"));
    EXPECT_EQ(camera->requestCount(), 5U) << "each press requests the camera";
}

TEST_F(ConsentScreen, CopiesBodiesAndButtonsShareOneClosureThatMayBeEmpty) {
    const auto counting = [count = 0, this](bool) mutable { decisions.push_back(std::to_string(++count)); };
    for (const auto& original :
         {client().informationView("", {}, {}, {}, counting), client().informationView("", {}, {}, {}, {})}) {
        for (const InformationView& copy : {original, InformationView(original)}) {
            press(copy, "cancel");
            press(copy, "consent");
            EXPECT_TRUE(camera->answerNext());
        }
    }
    EXPECT_THAT(decisions, ElementsAre("1", "2", "3", "4"));
}

}  // namespace
}  // namespace tarvex
