#include "platform/glib/gio_application.h"

#include <gio/gio.h>

namespace tarvex::platform {

void GioApplication::openUrl(const Url& url) {
    g_app_info_launch_default_for_uri_async(url.string().c_str(), nullptr, nullptr, nullptr, nullptr);
}

}  // namespace tarvex::platform
