#pragma once

#include <functional>
#include <vector>

#include "tarvex/data_reader.h"
#include "tarvex/platform/application.h"
#include "tarvex/platform/capture_device.h"
#include "tarvex/platform/user_defaults.h"
#include "tarvex/url.h"

namespace tarvex {

/// The user's consent: one flag for each kind of reader, and the actions of the consent screen, one of which sets them.
/// No flag is ever cleared. All functions are thread-safe.

/// The flag of this kind, read afresh; false when it was never stored.
bool hasConsented(const platform::UserDefaults& userDefaults, DataReader::Kind kind);

/// Receives the user's decision; an empty one is not called.
using ConsentDecision = std::function<void(bool)>;

/// "Cancel": reports the refusal to the host. Flags of an earlier consent stay.
void refuseConsent(const ConsentDecision& decide) noexcept;

/// "Learn more...": requests the desktop to open the host's page.
void openInformation(platform::Application& application, const Url& url) noexcept;

/// "I consent": requests the camera, whatever `readers` are. When it is granted, stores the flag of each of them, in
/// their order, and then calls `decide` with true; otherwise stores nothing and calls it with false. Both happen on the
/// thread on which the platform grants or refuses; the services must outlive that.
void requestConsent(platform::CaptureDevice& captureDevice, platform::UserDefaults& userDefaults,
                    std::vector<DataReader> readers, ConsentDecision decide) noexcept;

}  // namespace tarvex
