#include "other_application.h"

#include <X11/Xlib.h>

#include <string>

#include "consent_window.h"

namespace tarvex::test {

struct OtherApplication::Connection {
    Display* display;
};

OtherApplication::OtherApplication() : connection_(new Connection{XOpenDisplay(nullptr)}) {
    Display* display = connection_->display;
    const Window window = XCreateSimpleWindow(display, DefaultRootWindow(display), 700, 100, 200, 100, 0, 0, 0);
    XMapWindow(display, window);
    XFlush(display);
    runFor(200ms);
    VirtualScreen::run({"xdotool", "windowactivate", std::to_string(window)});
}

OtherApplication::~OtherApplication() {
    XCloseDisplay(connection_->display);
}

}  // namespace tarvex::test
