#pragma once

#include <gio/gio.h>

#include "tarvex/platform/application.h"

namespace tarvex::platform {

/// Opens URLs with the application that the desktop has set for them. Thread-safe.
class GioApplication final : public Application {
public:
    void openUrl(const Url& url) override {
        g_app_info_launch_default_for_uri_async(url.string().c_str(), nullptr, nullptr, nullptr, nullptr);
    }
};

}  // namespace tarvex::platform
