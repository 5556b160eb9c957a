#include "platform/gtk/usable_gtk.h"

#include <gtk/gtk.h>
#include <link.h>

#include <string_view>

#include "tarvex/platform/diagnostics.h"

namespace tarvex::gtk {

namespace {

bool isOtherMajorVersion(std::string_view path) {
    const std::string_view name = path.substr(path.rfind('/') + 1);
    return name.starts_with("libgtk-3.so") || name.starts_with("libgtk-x11-2.0.so");
}

bool otherMajorVersionIsLoaded() {
    const auto visit = [](dl_phdr_info* object, std::size_t, void*) -> int {
        return isOtherMajorVersion(object->dlpi_name != nullptr ? object->dlpi_name : "") ? 1 : 0;
    };
    return dl_iterate_phdr(visit, nullptr) != 0;
}

}  // namespace

bool isAloneInProcess() {
    if (!otherMajorVersionIsLoaded()) return true;
    static platform::WarningOnce warning;
    warning.log("GTK 4 cannot be used: another major version of GTK is loaded in this process");
    return false;
}

bool isUsable() {
    if (!isAloneInProcess()) return false;
    // After a failed attempt GTK calls itself initialised: only the display tells.
    if (gtk_is_initialized() == 0) gtk_init_check();
    if (gdk_display_get_default() != nullptr) return true;
    static platform::WarningOnce warning;
    warning.log("GTK 4 cannot be used: there is no display that it can open");
    return false;
}

}  // namespace tarvex::gtk
