#include "platform/gtk/host_view.h"

#include <utility>

#include "platform/shared/handle.h"

namespace tarvex::gtk {

HostView::HostView(GtkWidget* widget) {
    g_set_weak_pointer(&widget_, widget);
}

HostView::~HostView() {
    for (const auto& child : subviews())
        willRemoveSubview(*child);
    takeOff();
    g_clear_weak_pointer(&widget_);
}

void HostView::addSubview(std::shared_ptr<View> child) {
    const View* added = child.get();
    if (added == nullptr || (!subviews().empty() && subviews().back().get() == added)) return;
    auto* layer = dynamic_cast<HostView*>(child.get());
    // The overlay that the widget leaves may be the last to hold it.
    const platform::Handle<GtkWidget, g_object_unref> moving(
        layer != nullptr && layer->widget_ != nullptr ? GTK_WIDGET(g_object_ref(layer->widget_)) : nullptr);
    View::addSubview(std::move(child));
    const bool refused = subviews().empty() || subviews().back().get() != added;
    if (layer != nullptr && !refused) layer->layOver(widget_);
}

void HostView::willRemoveSubview(View& child) {
    if (auto* layer = dynamic_cast<HostView*>(&child)) layer->takeOff();
}

// A widget that the host shows elsewhere stays there.
void HostView::layOver(GtkWidget* overlay) {
    if (widget_ == nullptr || overlay == nullptr || GTK_IS_OVERLAY(overlay) == 0) return;
    if (gtk_widget_get_parent(widget_) != nullptr) return;
    gtk_overlay_add_overlay(GTK_OVERLAY(overlay), widget_);
    g_set_weak_pointer(&overlay_, overlay);
}

// The host may have taken the widget off already.
void HostView::takeOff() {
    if (widget_ != nullptr && overlay_ != nullptr && gtk_widget_get_parent(widget_) == overlay_)
        gtk_overlay_remove_overlay(GTK_OVERLAY(overlay_), widget_);
    g_clear_weak_pointer(&overlay_);
}

}  // namespace tarvex::gtk
