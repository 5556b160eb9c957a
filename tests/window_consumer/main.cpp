// A stranger's host with GTK windows, on a machine without a display.

#include <gtk/gtk.h>
#include <tarvex/client.h>
#include <tarvex/gtk.h>
#include <tarvex/platform/platform.h>

#include <cstdlib>
#include <iostream>
#include <utility>

namespace gtk = tarvex::gtk;
using tarvex::platform::Platform;

namespace {

void expect(bool holds, const char* what) {
    if (holds) return;
    std::cerr << "failed: " << what << '\n';
    std::exit(1);
}

}  // namespace

int main() {
    unsetenv("DISPLAY");
    unsetenv("WAYLAND_DISPLAY");
    auto platform = Platform::makeLinux();
    gtk::addTo(*platform);
    expect(Platform::install(std::move(platform)), "a platform with GTK can be installed");
    const auto controller = tarvex::Client::shared().informationViewController(
        "Study", std::nullopt, {tarvex::DataReader::ambientLight(5)}, std::nullopt, nullptr);
    GtkWidget* screen = gtk::widget(*controller);
    expect(screen == nullptr, "without a display there is no widget, and no crash");
    expect(gtk::wrap(nullptr) != nullptr, "a view without a widget is a view");
    std::cout << "Tarvex knows GTK " << gtk_get_major_version() << '\n';
}
