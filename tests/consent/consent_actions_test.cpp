#include "consent/consent_actions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "testing/memory_user_defaults.h"
#include "testing/recording_application.h"
#include "testing/scripted_capture_device.h"

namespace tarvex {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr const char* distanceKey = "hasConsentedToTrackDistance";
constexpr const char* lightKey = "hasConsentedToTrackAmbientLight";

class RecordingUserDefaults final : public platform::UserDefaults {
public:
    explicit RecordingUserDefaults(std::vector<std::string>& events) : events_(events) {}

    bool boolForKey(std::string_view) const override { return false; }
    std::optional<std::string> stringForKey(std::string_view) const override { return std::nullopt; }
    void setValueForKey(bool value, std::string_view key) override {
        events_.push_back(std::string(key) + (value ? "=true" : "=false"));
    }
    std::string setStringIfAbsent(std::string_view value, std::string_view) override { return std::string(value); }

private:
    std::vector<std::string>& events_;
};

// What one press of "I consent" does, in order, when the camera is granted or refused.
std::vector<std::string> consent(const std::vector<DataReader>& readers, bool granted) {
    std::vector<std::string> events;
    testing::ScriptedCaptureDevice camera({granted});
    RecordingUserDefaults defaults(events);
    requestConsent(camera, defaults, readers, [&](bool decision) { events.emplace_back(decision ? "yes" : "no"); });
    EXPECT_THAT(events, IsEmpty()) << "before the answer";
    EXPECT_EQ(camera.requestCount(), 1U);
    EXPECT_TRUE(camera.answerNext());
    return events;
}

TEST(RequestConsent, StoresTheFlagOfEachReaderBeforeTheHostLearns) {
    const DataReader distance = DataReader::distance(std::nullopt);
    const DataReader light = DataReader::ambientLight(5);
    EXPECT_THAT(consent({distance, light}, true),
                ElementsAre("hasConsentedToTrackDistance=true", "hasConsentedToTrackAmbientLight=true", "yes"));
    EXPECT_THAT(consent({light}, true), ElementsAre("hasConsentedToTrackAmbientLight=true", "yes"));
    EXPECT_THAT(consent({distance, DataReader::distance(9)}, true),
                ElementsAre("hasConsentedToTrackDistance=true", "hasConsentedToTrackDistance=true", "yes"));
    EXPECT_THAT(consent({}, true), ElementsAre("yes"));
}

TEST(RequestConsent, StoresNothingWhenTheCameraIsRefused) {
    EXPECT_THAT(consent({DataReader::distance(5), DataReader::ambientLight(5)}, false), ElementsAre("no"));
    EXPECT_THAT(consent({}, false), ElementsAre("no"));
}

TEST(RequestConsent, AsksAgainForEveryPressAndNeverTakesAConsentBack) {
    testing::ScriptedCaptureDevice camera({true, false});
    testing::MemoryUserDefaults defaults;
    std::vector<bool> decisions;
    const auto decide = [&](bool decision) { decisions.push_back(decision); };
    requestConsent(camera, defaults, {DataReader::ambientLight(5)}, decide);
    requestConsent(camera, defaults, {DataReader::ambientLight(5), DataReader::distance(5)}, decide);
    refuseConsent(decide);
    while (camera.answerNext()) {
    }

    EXPECT_EQ(camera.requestCount(), 2U);
    EXPECT_THAT(decisions, ElementsAre(false, true, false));
    EXPECT_TRUE(defaults.boolForKey(lightKey));
    EXPECT_FALSE(defaults.boolForKey(distanceKey));
}

TEST(RequestConsent, NeedsNoCallback) {
    testing::ScriptedCaptureDevice camera({true});
    testing::MemoryUserDefaults defaults;
    refuseConsent({});
    requestConsent(camera, defaults, {DataReader::distance(1)}, {});
    EXPECT_TRUE(camera.answerNext());
    EXPECT_TRUE(defaults.boolForKey(distanceKey));
}

TEST(OpenInformation, HandsTheHostsPageToTheDesktop) {
    testing::RecordingApplication application;
    const auto url = Url::parse("https://example.org/study?a=b#c");
    if (url) openInformation(application, *url);
    EXPECT_THAT(application.openedUrls(), ElementsAre("https://example.org/study?a=b#c"));
}

}  // namespace
}  // namespace tarvex
