#pragma once

#include <memory>

#include "platform/capture_device.h"
#include "platform/linux/portal_conversations.h"
#include "platform/run_loop.h"

namespace tarvex::platform {

/// Asks the desktop portal for the camera. The portal asks the user once and keeps the answer.
///
/// Granted when the portal says so. Refused when the user or the portal refuses, when the portal replies with an error,
/// when it or the bus goes away before it has answered, and when the system has no thread to ask it on. Where there is
/// no portal to ask, the fallback answers.
class PortalCaptureDevice final : public CaptureDevice {
public:
    /// `main` must outlive this.
    PortalCaptureDevice(RunLoop& main, std::unique_ptr<CaptureDevice> fallback);

    /// Answers on a background thread: no main loop needs to run. Without a thread, answers on the main loop.
    void requestAccessForVideo(std::function<void(bool)> handler) override;

    bool isRequestInProgress() const override;

private:
    RunLoop& main_;
    std::unique_ptr<CaptureDevice> fallback_;
    PortalConversations conversations_;
};

}  // namespace tarvex::platform
