#include "platform/portal/portal_services.h"

#include <utility>

namespace tarvex::platform {

PortalApplication::PortalApplication(RunLoop& main, std::unique_ptr<Application> fallback)
    : main_(main), fallback_(std::move(fallback)) {}

void PortalApplication::openUrl(const Url& url) {
    const auto open = [this, url] { main_.perform([fallback = fallback_, url] { fallback->openUrl(url); }); };
    const bool asked = conversations_.begin(
        {.interface = "org.freedesktop.portal.OpenURI", .method = "OpenURI", .arguments = {"", url.string()}},
        [open](PortalAnswer answer) {
            if (answer == PortalAnswer::failed || answer == PortalAnswer::unavailable) open();
        });
    if (!asked) open();
}

PortalCaptureDevice::PortalCaptureDevice(RunLoop& main, std::function<bool()> mayUseCameraWithoutPortal,
                                         std::chrono::milliseconds busTimeLimit)
    : main_(main), mayUseCameraWithoutPortal_(std::move(mayUseCameraWithoutPortal)), busTimeLimit_(busTimeLimit) {}

void PortalCaptureDevice::requestAccessForVideo(std::function<void(bool)> handler) {
    const auto answered = [handler, mayUseCamera = mayUseCameraWithoutPortal_](PortalAnswer answer) {
        handler(answer == PortalAnswer::unavailable ? mayUseCamera() : answer == PortalAnswer::agreed);
    };
    const bool asked = conversations_.begin({.interface = "org.freedesktop.portal.Camera",
                                             .method = "AccessCamera",
                                             .arguments = {},
                                             .busTimeLimit = busTimeLimit_},
                                            answered);
    // The devices decide only where there is no portal; here there may be one that could not be asked.
    if (!asked) main_.perform([handler = std::move(handler)] { handler(false); });
}

}  // namespace tarvex::platform
