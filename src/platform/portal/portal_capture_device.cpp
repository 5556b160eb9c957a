#include "platform/portal/portal_capture_device.h"

#include <utility>

namespace tarvex::platform {

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
    // The devices decide where there is no portal; here it could not be asked.
    if (!asked) main_.perform([handler = std::move(handler)] { handler(false); });
}

bool PortalCaptureDevice::isRequestInProgress() const {
    return conversations_.areUnderWay();
}

}  // namespace tarvex::platform
