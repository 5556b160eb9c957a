#include "consent/consent_actions.h"

#include <utility>

#include "client/consent_key.h"
#include "values/host_callback.h"

namespace tarvex {

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
                    userDefaults.setValueForKey(true, consentKey(reader.kind()));
            }
            callHost(decide, granted);
        });
}

}  // namespace tarvex
