#include "platform/linux/portal_application.h"

#include <utility>

namespace tarvex::platform {

PortalApplication::PortalApplication(RunLoop& main, std::unique_ptr<Application> fallback)
    : main_(main), fallback_(std::move(fallback)) {}

void PortalApplication::openUrl(const Url& url) {
    conversations_.begin(
        {.interface = "org.freedesktop.portal.OpenURI", .method = "OpenURI", .arguments = {"", url.string()}},
        [this, url](PortalAnswer answer) {
            if (answer == PortalAnswer::agreed || answer == PortalAnswer::refused) return;
            main_.perform([fallback = fallback_, url] { fallback->openUrl(url); });
        });
}

bool PortalApplication::isOpeningUrl() const {
    return conversations_.areUnderWay();
}

}  // namespace tarvex::platform
