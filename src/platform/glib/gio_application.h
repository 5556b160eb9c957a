#pragma once

#include "tarvex/platform/application.h"

namespace tarvex::platform {

/// Opens URLs with the application that the desktop has set for them.
class GioApplication final : public Application {
public:
    void openUrl(const Url& url) override;
};

}  // namespace tarvex::platform
