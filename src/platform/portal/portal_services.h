#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "platform/portal/portal_request.h"
#include "tarvex/platform/application.h"
#include "tarvex/platform/capture_device.h"
#include "tarvex/platform/run_loop.h"

namespace tarvex::platform {

/// Opens URLs through the desktop portal; where there is none, or it replies with an error, the fallback opens them.
/// Thread-safe.
class PortalApplication final : public Application {
public:
    /// `main` must outlive this: the fallback is called on it.
    PortalApplication(RunLoop& main, std::unique_ptr<Application> fallback);

    void openUrl(const Url& url) override;
    bool isOpeningUrl() const override { return conversations_.areUnderWay(); }

private:
    RunLoop& main_;
    std::shared_ptr<Application> fallback_;
    PortalConversations conversations_;
};

/// Requests the camera from the desktop portal, which asks the user once and keeps the answer. Thread-safe.
///
/// Granted when the portal grants it. Refused when the user or the portal refuses, when the portal replies with an
/// error, when it or the bus goes away before it has answered, and when the system has no thread for the request. Where
/// there is no portal, or the bus does not answer in time, `mayUseCameraWithoutPortal` decides.
class PortalCaptureDevice final : public CaptureDevice {
public:
    /// `main` must outlive this. `mayUseCameraWithoutPortal` is called on any thread.
    PortalCaptureDevice(RunLoop& main, std::function<bool()> mayUseCameraWithoutPortal,
                        std::chrono::milliseconds busTimeLimit = PortalRequest::usualBusTimeLimit);

    /// Calls `handler` on a thread of the request's own: no main loop needs to run, and the handler may take its time.
    /// Without a thread, calls it on the main loop.
    void requestAccessForVideo(std::function<void(bool)> handler) override;

    bool isRequestInProgress() const override { return conversations_.areUnderWay(); }

private:
    RunLoop& main_;
    std::function<bool()> mayUseCameraWithoutPortal_;
    std::chrono::milliseconds busTimeLimit_;
    PortalConversations conversations_;
};

}  // namespace tarvex::platform
