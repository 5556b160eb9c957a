#pragma once

#include <memory>

#include "tarvex/platform/view_toolkit.h"

namespace tarvex::platform {

/// The toolkit of a host without a user-interface module: its controllers hold their root view and show nothing.
class HeadlessViewToolkit final : public ViewToolkit {
public:
    std::shared_ptr<ViewController> makeHostingController(InformationView rootView) override;
};

}  // namespace tarvex::platform
