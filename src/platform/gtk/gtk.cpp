#include "tarvex/gtk.h"

#include "platform/gtk/background_detector.h"
#include "platform/gtk/element_renderer.h"
#include "platform/gtk/host_view.h"
#include "platform/gtk/usable_gtk.h"

namespace tarvex::gtk {

void addTo(platform::Platform& platform) {
    if (!isAloneInProcess()) return;
    postBackground(platform);
}

std::shared_ptr<View> wrap(GtkWidget* overlayHost) {
    return std::make_shared<HostView>(overlayHost);
}

GtkWidget* widget(const InformationView& view) {
    return isUsable() ? renderScreen(view.body()) : nullptr;
}

GtkWidget* widget(const ViewController& controller) {
    return widget(controller.rootView());
}

}  // namespace tarvex::gtk
