#include "consent/consent_actions.h"
#include "consent/view_factories.h"
#include "platform/plist/plist_bundles.h"
#include "platform/portable/headless_view_toolkit.h"
#include "prelude.h"
#include "tarvex/testing/memory_user_defaults.h"
#include "tarvex/testing/recording_application.h"
#include "tarvex/testing/scripted_capture_device.h"

namespace tarvex {
namespace {

const DataReader distance = DataReader::distance(std::nullopt);
const DataReader light = DataReader::ambientLight(5);

const std::vector<ui::Element>& children(const ui::Element& screen) {
    return std::get<ui::VStack>(screen.content).children;
}

std::string nameOn(const InformationView& view) {
    const ui::Element body = view.body();
    return std::get<ui::LocalizedText>(std::get<ui::Text>(children(body)[3].content).source).arguments.front();
}

class ConsentScreen : public ::testing::Test {
protected:
    ConsentScreen() {
        platform.setUserDefaults(install<testing::MemoryUserDefaults>(defaults));
        platform.setCaptureDevice(install<testing::ScriptedCaptureDevice>(camera, std::deque{true, false, true}));
        platform.setApplication(install<testing::RecordingApplication>(application));
        platform.setViewToolkit(std::make_unique<platform::HeadlessViewToolkit>());
        platform.setBundles(std::make_unique<platform::PlistBundles>(bundle.path()));
    }

    template <typename Service, typename... Arguments>
    static std::unique_ptr<Service> install(Service*& observer, Arguments... arguments) {
        auto service = std::make_unique<Service>(std::move(arguments)...);
        observer = service.get();
        return service;
    }

    // What the host is told, with the flags as they are then.
    ConsentDecision decide() {
        return [this](bool decision) {
            decisions.push_back((decision ? "yes" : "no") + flag("Distance") + flag("AmbientLight"));
        };
    }

    std::string flag(const std::string& kind) const {
        return defaults->boolForKey("hasConsentedToTrack" + kind) ? " " + kind : "";
    }

    void request(std::vector<DataReader> readers) {
        decisions.clear();
        requestConsent(*camera, *defaults, std::move(readers), decide());
        EXPECT_THAT(decisions, IsEmpty()) << "before the answer";
        EXPECT_TRUE(camera->answerNext());
    }

    std::shared_ptr<ViewController> controller() {
        return InformationViewFactory(platform).informationViewController("Light Study", {}, {light},
                                                                          Url::parse("https://example.org/"), decide());
    }

    // The person presses a button of a screen that the host has dropped by then.
    void press(std::size_t child) { press(controller()->rootView(), child); }

    static void press(const InformationView& view, std::size_t child) {
        ui::Element element = children(view.body())[child];
        if (const auto* bar = std::get_if<ui::HStack>(&element.content)) element = ui::Element(bar->children.back());
        std::get<ui::Button>(element.content).action();
    }

    TemporaryDirectory bundle;
    platform::Platform platform;
    testing::MemoryUserDefaults* defaults = nullptr;
    testing::ScriptedCaptureDevice* camera = nullptr;
    testing::RecordingApplication* application = nullptr;
    std::vector<std::string> decisions;
};

TEST_F(ConsentScreen, NamesTheHostFromItsBundleOnlyWhenNoNameIsGiven) {
    using Case = std::tuple<std::optional<std::string>, const char*, const char*>;
    for (const auto& [given, strings, name] :
         {Case{"Given", "<key>CFBundleDisplayName</key><string>Display</string>", "Given"},
          Case{"", "<key>CFBundleDisplayName</key><string>Display</string>", ""},
          Case{{}, "<key>CFBundleDisplayName</key><string>D</string><key>CFBundleName</key><string>N</string>", "D"},
          Case{{}, "<key>CFBundleDisplayName</key><string></string><key>CFBundleName</key><string>N</string>", ""},
          Case{{}, "<key>CFBundleName</key><string>N</string>", "N"}, Case{{}, "", "Unknown"}}) {
        writeFile(bundle.path() / "Info.plist", "<plist><dict>" + std::string(strings) + "</dict></plist>");
        const InformationViewFactory factory(platform);
        EXPECT_EQ(nameOn(factory.informationView(given, {}, {}, {}, {})), name);
        EXPECT_EQ(nameOn(factory.informationViewController(given, {}, {}, {}, {})->rootView()), name);
    }
}

TEST_F(ConsentScreen, EachButtonDoesItsOwnThing) {
    press(0);
    EXPECT_THAT(decisions, ElementsAre("no"));
    EXPECT_EQ(camera->requestCount(), 0U);
    press(4);
    EXPECT_THAT(application->openedUrls(), ElementsAre("https://example.org/"));
    press(8);
    EXPECT_THAT(decisions, ElementsAre("no")) << "before the camera's answer";
    EXPECT_TRUE(camera->answerNext());
    EXPECT_THAT(decisions, ElementsAre("no", "yes AmbientLight"));
    EXPECT_NE(controller(), controller()) << "every call makes a screen of its own";
}

TEST_F(ConsentScreen, StoresTheFlagOfEachReaderBeforeTheHostLearnsAndNeverTakesOneBack) {
    request({});
    EXPECT_THAT(decisions, ElementsAre("yes"));
    request({distance, light});
    EXPECT_THAT(decisions, ElementsAre("no")) << "refused";
    request({distance, light, distance});
    EXPECT_THAT(decisions, ElementsAre("yes Distance AmbientLight"));
    request({distance});
    refuseConsent(decide());
    EXPECT_THAT(decisions, ElementsAre("no Distance AmbientLight", "no Distance AmbientLight"));
    EXPECT_EQ(camera->requestCount(), 4U) << "each press asks";
}

TEST_F(ConsentScreen, CopiesBodiesAndButtonsShareOneClosureThatMayBeEmpty) {
    const InformationViewFactory factory(platform);
    const auto counting = [count = 0, this](bool) mutable { decisions.push_back(std::to_string(++count)); };
    for (const auto& view :
         {factory.informationView("", {}, {}, {}, counting), factory.informationView("", {}, {}, {}, {})}) {
        for (const InformationView& copy : {view, InformationView(view)}) {
            press(copy, 0);
            press(copy, 7);
            EXPECT_TRUE(camera->answerNext());
        }
    }
    EXPECT_THAT(decisions, ElementsAre("1", "2", "3", "4"));
}

}  // namespace
}  // namespace tarvex
