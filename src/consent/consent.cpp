#include "consent/consent.h"

#include <string_view>
#include <utility>

#include "values/host_boundary.h"

namespace tarvex {

namespace {

constexpr std::string_view flagOf(DataReader::Kind kind) {
    return kind == DataReader::Kind::distance ? "hasConsentedToTrackDistance" : "hasConsentedToTrackAmbientLight";
}

}  // namespace

bool hasConsented(const platform::UserDefaults& userDefaults, DataReader::Kind kind) {
    return userDefaults.boolForKey(flagOf(kind));
}

void refuseConsent(const ConsentDecision& decide) noexcept {
    callHost(decide, false);
}

void openInformation(platform::Application& application, const Url& url) noexcept {
    application.openUrl(url);
}

void requestConsent(platform::CaptureDevice& captureDevice, platform::UserDefaults& userDefaults,
                    std::vector<DataReader> readers, ConsentDecision decide) noexcept {
    captureDevice.requestAccessForVideo(
        [&userDefaults, readers = std::move(readers), decide = std::move(decide)](bool granted) noexcept {
            if (granted) {
                for (const DataReader& reader : readers)
                    userDefaults.setValueForKey(true, flagOf(reader.kind()));
            }
            callHost(decide, granted);
        });
}

}  // namespace tarvex
