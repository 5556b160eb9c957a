#include "platform/gtk/host_view.h"

#include <utility>

namespace tarvex::gtk {

HostView::HostView(GtkWidget* widget) : widget_(widget) {
    if (widget_ != nullptr) g_object_add_weak_pointer(G_OBJECT(widget_), reinterpret_cast<gpointer*>(&widget_));
}

HostView::~HostView() {
    for (const auto& [child, layer] : layers_)
        hide(layer.get());
    if (widget_ != nullptr) g_object_remove_weak_pointer(G_OBJECT(widget_), reinterpret_cast<gpointer*>(&widget_));
}

void HostView::addSubview(std::shared_ptr<View> child) {
    const View* added = child.get();
    if (added == nullptr || (!subviews().empty() && subviews().back().get() == added)) return;
    const Widget moving = widgetOf(*added);  // its former parent may be the last to hold it
    View::addSubview(std::move(child));
    if (subviews().empty() || subviews().back().get() != added) return;  // refused
    if (Widget layer = makeLayer(*added)) layers_[added] = std::move(layer);
}

void HostView::willRemoveSubview(View& child) {
    if (const auto layer = layers_.extract(&child)) hide(layer.mapped().get());
}

HostView::Widget HostView::widgetOf(const View& child) {
    const auto* hostView = dynamic_cast<const HostView*>(&child);
    const bool wraps = hostView != nullptr && hostView->widget_ != nullptr;
    return Widget(wraps ? GTK_WIDGET(g_object_ref(hostView->widget_)) : nullptr);
}

HostView::Widget HostView::makeLayer(const View& child) const {
    if (widget_ == nullptr || GTK_IS_OVERLAY(widget_) == 0) return nullptr;
    Widget layer = widgetOf(child);
    if (layer && gtk_widget_get_parent(layer.get()) != nullptr) return nullptr;
    if (!layer) {
        layer.reset(GTK_WIDGET(g_object_ref_sink(
            g_object_new(GTK_TYPE_BOX, "accessible-role", GTK_ACCESSIBLE_ROLE_PRESENTATION, nullptr))));
        gtk_accessible_update_state(GTK_ACCESSIBLE(layer.get()), GTK_ACCESSIBLE_STATE_HIDDEN, TRUE, -1);
        gtk_widget_set_can_target(layer.get(), FALSE);
    }
    gtk_overlay_add_overlay(GTK_OVERLAY(widget_), layer.get());
    return layer;
}

/// Takes the layer off the overlay, unless the host has taken it away or destroyed the overlay.
void HostView::hide(GtkWidget* layer) const {
    if (widget_ != nullptr && gtk_widget_get_parent(layer) == widget_)
        gtk_overlay_remove_overlay(GTK_OVERLAY(widget_), layer);
}

}  // namespace tarvex::gtk
