#include "platform/gtk/gtk_view_toolkit.h"

#include <set>
#include <utility>

namespace tarvex::gtk {

namespace {

// Never destroyed: the process's own platform lives until the end.
std::set<const platform::Platform*>& platformsWithToolkit() {
    static auto& platforms = *new std::set<const platform::Platform*>;
    return platforms;
}

}  // namespace

std::unique_ptr<GtkViewToolkit> GtkViewToolkit::make(platform::Platform& platform,
                                                     std::chrono::milliseconds timeWithoutFocus) {
    if (!platformsWithToolkit().insert(&platform).second) return nullptr;
    return std::unique_ptr<GtkViewToolkit>(new GtkViewToolkit(platform, timeWithoutFocus));
}

GtkViewToolkit::GtkViewToolkit(platform::Platform& platform, std::chrono::milliseconds timeWithoutFocus)
    : platform_(platform),
      background_({.didEnterBackground =
                       [&platform] { platform.notificationCenter().post(platform::applicationDidEnterBackground); },
                   .isCoveredBySystemDialog =
                       [&platform] {
                           return platform.captureDevice().isRequestInProgress() ||
                                  platform.application().isOpeningUrl();
                       }},
                  timeWithoutFocus) {}

GtkViewToolkit::~GtkViewToolkit() {
    platformsWithToolkit().erase(&platform_);
}

std::shared_ptr<ViewController> GtkViewToolkit::makeHostingController(InformationView rootView) {
    return std::make_shared<platform::HostingController>(std::move(rootView));
}

}  // namespace tarvex::gtk
