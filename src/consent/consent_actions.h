#pragma once

#include <functional>
#include <vector>

#include "tarvex/data_reader.h"
#include "tarvex/platform/application.h"
#include "tarvex/platform/capture_device.h"
#include "tarvex/platform/user_defaults.h"
#include "tarvex/url.h"

namespace tarvex {

/// What the host does with the user's decision; an empty one is called nowhere.
using ConsentDecision = std::function<void(bool)>;

/// "Cancel": tells the host that the user refuses. Flags of an earlier consent stay.
void refuseConsent(const ConsentDecision& decide) noexcept;

/// "Learn more...": asks the desktop to open the host's page.
void openInformation(platform::Application& application, const Url& url) noexcept;

/// "I consent": asks for the camera, whatever `readers` are. When it is granted, stores the flag of each of them, in
/// their order, and then tells the host so; otherwise tells the host that it was refused, and stores nothing. All of
/// this happens on the thread on which the platform answers; the services must live until then.
void requestConsent(platform::CaptureDevice& captureDevice, platform::UserDefaults& userDefaults,
                    std::vector<DataReader> readers, ConsentDecision decide) noexcept;

}  // namespace tarvex
