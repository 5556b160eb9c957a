#include "platform/portal/portal_application.h"

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

bool PortalApplication::isOpeningUrl() const {
    return conversations_.areUnderWay();
}

}  // namespace tarvex::platform
