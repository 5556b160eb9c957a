#include "platform/linux/portal_capture_device.h"

#include <utility>

namespace tarvex::platform {

PortalCaptureDevice::PortalCaptureDevice(std::unique_ptr<CaptureDevice> fallback) : fallback_(std::move(fallback)) {}

void PortalCaptureDevice::requestAccessForVideo(std::function<void(bool)> handler) {
    conversations_.begin({.interface = "org.freedesktop.portal.Camera", .method = "AccessCamera", .arguments = {}},
                         [this, handler = std::move(handler)](PortalAnswer answer) {
                             if (answer == PortalAnswer::unavailable) return fallback_->requestAccessForVideo(handler);
                             handler(answer == PortalAnswer::agreed);
                         });
}

bool PortalCaptureDevice::isRequestInProgress() const {
    return conversations_.areUnderWay();
}

}  // namespace tarvex::platform
