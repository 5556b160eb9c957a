#include "platform/portable/headless_view_toolkit.h"

#include <utility>

namespace tarvex::platform {

std::shared_ptr<ViewController> HeadlessViewToolkit::makeHostingController(InformationView rootView) {
    return std::make_shared<HostingController>(std::move(rootView));
}

}  // namespace tarvex::platform
