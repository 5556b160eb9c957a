#include "platform/linux/portal_capture_device.h"

#include <utility>

namespace tarvex::platform {

PortalCaptureDevice::PortalCaptureDevice(RunLoop& main, std::unique_ptr<CaptureDevice> fallback)
    : main_(main), fallback_(std::move(fallback)) {}

void PortalCaptureDevice::requestAccessForVideo(std::function<void(bool)> handler) {
    const auto answered = [this, handler](PortalAnswer answer) {
        if (answer == PortalAnswer::unavailable) return fallback_->requestAccessForVideo(handler);
        handler(answer == PortalAnswer::agreed);
    };
    const bool asked = conversations_.begin(
        {.interface = "org.freedesktop.portal.Camera", .method = "AccessCamera", .arguments = {}}, answered);
    // The fallback is for where there is no portal; here it could not be asked.
    if (!asked) main_.perform([handler = std::move(handler)] { handler(false); });
}

bool PortalCaptureDevice::isRequestInProgress() const {
    return conversations_.areUnderWay();
}

}  // namespace tarvex::platform
