#include "consent/view_factories.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/headless_view_toolkit.h"
#include "testing/memory_user_defaults.h"
#include "testing/recording_application.h"
#include "testing/scripted_capture_device.h"

namespace tarvex {
namespace {

using ::testing::ElementsAre;

// Bundles whose main bundle holds the given strings; nothing else may be asked for.
class NamedBundles final : public platform::Bundles, public platform::Bundle {
public:
    explicit NamedBundles(std::map<std::string, std::string, std::less<>> strings) : strings_(std::move(strings)) {}

    const platform::Bundle& mainBundle() const override {
        ++lookups_;
        return *this;
    }
    std::optional<std::string> stringForInfoDictionaryKey(std::string_view key) const override {
        const auto entry = strings_.find(key);
        return entry == strings_.end() ? std::nullopt : std::optional(entry->second);
    }
    int lookups() const { return lookups_; }

    const platform::Bundle* bundleWithIdentifier(std::string_view) const override { return nullptr; }
    std::unique_ptr<platform::PropertyListDictionary> dictionaryWithContentsOfFile(
        const std::filesystem::path&) const override {
        return nullptr;
    }
    std::optional<std::filesystem::path> pathForResource(std::string_view, std::string_view) const override {
        return std::nullopt;
    }
    std::optional<std::string> bundleIdentifier() const override { return std::nullopt; }

private:
    std::map<std::string, std::string, std::less<>> strings_;
    mutable int lookups_ = 0;
};

const std::vector<ui::Element>& children(const ui::Element& screen) {
    return std::get<ui::VStack>(screen.content).children;
}

std::string nameOn(const InformationView& view) {
    const ui::Element body = view.body();
    const auto& headline = std::get<ui::Text>(children(body)[3].content);
    return std::get<ui::LocalizedText>(headline.source).arguments.front();
}

TEST(InformationViewFactory, NamesTheHostFromItsBundleOnlyWhenNoNameIsGiven) {
    struct Case {
        std::optional<std::string> given;
        std::map<std::string, std::string, std::less<>> strings;
        std::string name;
        int lookups;
    };
    for (const Case& c : {Case{"Given", {{"CFBundleDisplayName", "Display"}}, "Given", 0},
                          Case{"", {{"CFBundleDisplayName", "Display"}}, "", 0},
                          Case{{}, {{"CFBundleDisplayName", "Display"}, {"CFBundleName", "Name"}}, "Display", 1},
                          Case{{}, {{"CFBundleDisplayName", ""}, {"CFBundleName", "Name"}}, "", 1},
                          Case{{}, {{"CFBundleName", "Name"}}, "Name", 1}, Case{{}, {}, "Unknown", 1}}) {
        SCOPED_TRACE(c.name);
        platform::Platform platform;
        auto bundles = std::make_unique<NamedBundles>(c.strings);
        const NamedBundles& asked = *bundles;
        platform.setBundles(std::move(bundles));
        platform.setViewToolkit(std::make_unique<platform::HeadlessViewToolkit>());
        const InformationViewFactory factory(platform);

        EXPECT_EQ(nameOn(factory.informationView(c.given, {}, {}, {}, {})), c.name);
        EXPECT_EQ(asked.lookups(), c.lookups);
        EXPECT_EQ(nameOn(factory.informationViewController(c.given, {}, {}, {}, {})->rootView()), c.name);
    }
}

class ConsentScreenTest : public ::testing::Test {
protected:
    ConsentScreenTest() {
        platform_.setUserDefaults(install<testing::MemoryUserDefaults>(defaults));
        platform_.setCaptureDevice(install<testing::ScriptedCaptureDevice>(camera, std::deque{true, true}));
        platform_.setApplication(install<testing::RecordingApplication>(application));
        platform_.setViewToolkit(std::make_unique<platform::HeadlessViewToolkit>());
    }

    template <typename Service, typename... Arguments>
    static std::unique_ptr<Service> install(Service*& observer, Arguments... arguments) {
        auto service = std::make_unique<Service>(std::move(arguments)...);
        observer = service.get();
        return service;
    }

    std::shared_ptr<ViewController> controller() {
        return InformationViewFactory(platform_).informationViewController(
            "Light Study", {}, {DataReader::ambientLight(5)}, Url::parse("https://example.org/"),
            [this](bool decision) { decisions.push_back(decision); });
    }

    // The person presses a button of a screen that the host has dropped by then.
    void press(std::size_t child) {
        ui::Element element = children(controller()->rootView().body())[child];
        if (const auto* bar = std::get_if<ui::HStack>(&element.content)) element = ui::Element(bar->children.back());
        std::get<ui::Button>(element.content).action();
    }

    testing::MemoryUserDefaults* defaults = nullptr;
    testing::ScriptedCaptureDevice* camera = nullptr;
    testing::RecordingApplication* application = nullptr;
    std::vector<bool> decisions;

private:
    platform::Platform platform_;
};

TEST_F(ConsentScreenTest, EachButtonDoesItsOwnThing) {
    press(0);
    EXPECT_THAT(decisions, ElementsAre(false));
    EXPECT_EQ(camera->requestCount(), 0U);

    press(4);
    EXPECT_THAT(application->openedUrls(), ElementsAre("https://example.org/"));
    EXPECT_THAT(decisions, ElementsAre(false));

    press(8);
    EXPECT_FALSE(defaults->boolForKey("hasConsentedToTrackAmbientLight"));
    EXPECT_TRUE(camera->answerNext());
    EXPECT_THAT(decisions, ElementsAre(false, true));
    EXPECT_TRUE(defaults->boolForKey("hasConsentedToTrackAmbientLight"));
    EXPECT_FALSE(defaults->boolForKey("hasConsentedToTrackDistance"));
}

TEST_F(ConsentScreenTest, EveryCallMakesAControllerOfItsOwn) {
    const auto first = controller();
    const auto second = controller();
    EXPECT_NE(first, second);
    EXPECT_TRUE(first->rootView().body() == second->rootView().body());
    for (const auto& each : {first, second}) {
        std::get<ui::Button>(children(each->rootView().body()).back().content).action();
        EXPECT_TRUE(camera->answerNext());
    }
    EXPECT_THAT(decisions, ElementsAre(true, true));
}

}  // namespace
}  // namespace tarvex
