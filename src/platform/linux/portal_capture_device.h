#pragma once

#include <memory>

#include "platform/capture_device.h"
#include "platform/linux/portal_conversations.h"

namespace tarvex::platform {

/// Asks the desktop portal for the camera. The portal asks the user once and keeps the answer.
///
/// Granted when the portal says so. Refused when the user or the portal refuses, when the portal replies with an error,
/// and when it or the bus goes away before it has answered. Where there is no portal to ask, the fallback answers.
class PortalCaptureDevice final : public CaptureDevice {
public:
    explicit PortalCaptureDevice(std::unique_ptr<CaptureDevice> fallback);

    /// Answers on a background thread: no main loop needs to run.
    void requestAccessForVideo(std::function<void(bool)> handler) override;

    bool isRequestInProgress() const override;

private:
    std::unique_ptr<CaptureDevice> fallback_;
    PortalConversations conversations_;
};

}  // namespace tarvex::platform
