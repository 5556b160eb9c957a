#pragma once

#include <gio/gio.h>

#include <memory>
#include <string>

#include "platform/shared/handle.h"
#include "tarvex/platform/application.h"
#include "tarvex/platform/diagnostics.h"

namespace tarvex::platform {

/// Opens URLs with the application that the desktop has set for them; logs a warning where none opens one. Thread-safe.
class GioApplication final : public Application {
public:
    void openUrl(const Url& url) override {
        g_app_info_launch_default_for_uri_async(url.string().c_str(), nullptr, nullptr, logFailure,
                                                new std::string(url.string()));
    }

private:
    static void logFailure(GObject*, GAsyncResult* result, gpointer data) {
        const std::unique_ptr<std::string> url(static_cast<std::string*>(data));
        GError* failure = nullptr;
        if (g_app_info_launch_default_for_uri_finish(result, &failure) != FALSE) return;
        const Handle<GError, g_error_free> error(failure);
        logWarning("no application opens " + *url + ": " + error->message);
    }
};

}  // namespace tarvex::platform
