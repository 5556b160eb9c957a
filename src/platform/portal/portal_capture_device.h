#pragma once

#include <chrono>
#include <functional>

#include "platform/portal/portal_conversations.h"
#include "tarvex/platform/capture_device.h"
#include "tarvex/platform/run_loop.h"

namespace tarvex::platform {

/// Asks the desktop portal for the camera. The portal asks the user once and keeps the answer.
///
/// Granted when the portal says so. Refused when the user or the portal refuses, when the portal replies with an error,
/// when it or the bus goes away before it has answered, and when the system has no thread to ask it on. Where there is
/// no portal to ask, or the bus does not answer in time, what this user may do without one decides.
class PortalCaptureDevice final : public CaptureDevice {
public:
    /// `main` must outlive this. `mayUseCameraWithoutPortal` is called on any thread.
    PortalCaptureDevice(RunLoop& main, std::function<bool()> mayUseCameraWithoutPortal,
                        std::chrono::milliseconds busTimeLimit = PortalRequest::usualBusTimeLimit);

    /// Answers on a thread of the request's own: no main loop needs to run, and the handler may take its time. Without
    /// a thread, answers on the main loop.
    void requestAccessForVideo(std::function<void(bool)> handler) override;

    bool isRequestInProgress() const override;

private:
    RunLoop& main_;
    std::function<bool()> mayUseCameraWithoutPortal_;
    std::chrono::milliseconds busTimeLimit_;
    PortalConversations conversations_;
};

}  // namespace tarvex::platform
