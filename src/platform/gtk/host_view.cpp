#include "platform/gtk/host_view.h"

#include <algorithm>
#include <utility>

namespace tarvex::gtk {

HostView::HostView(GtkWidget* widget) : widget_(widget) {
    if (widget_ != nullptr) g_object_add_weak_pointer(G_OBJECT(widget_), reinterpret_cast<gpointer*>(&widget_));
    all().push_back(this);
}

HostView::~HostView() {
    std::erase(all(), this);
    while (!children_.empty())
        take(children_.back().view.get());
    if (widget_ != nullptr) g_object_remove_weak_pointer(G_OBJECT(widget_), reinterpret_cast<gpointer*>(&widget_));
}

// Never destroyed: a host may keep a view until the end of the process.
std::vector<HostView*>& HostView::all() {
    static auto& views = *new std::vector<HostView*>;
    return views;
}

void HostView::addSubview(std::shared_ptr<View> child) {
    if (!child || child.get() == this) return;
    if (!children_.empty() && children_.back().view == child) return;
    std::optional<Child> former;  // keeps a widget alive that moves
    for (HostView* view : all()) {
        if (auto taken = view->take(child.get())) former = std::move(taken);
    }
    Widget layer = makeLayer(*child);
    children_.push_back({.view = std::move(child), .layer = std::move(layer)});
}

HostView::Widget HostView::makeLayer(const View& child) const {
    if (widget_ == nullptr || GTK_IS_OVERLAY(widget_) == 0) return nullptr;
    const auto* hostView = dynamic_cast<const HostView*>(&child);
    GtkWidget* layer = hostView != nullptr ? hostView->widget_ : nullptr;
    if (layer != nullptr && gtk_widget_get_parent(layer) != nullptr) return nullptr;
    if (layer == nullptr) {
        layer = GTK_WIDGET(g_object_new(GTK_TYPE_BOX, "accessible-role", GTK_ACCESSIBLE_ROLE_PRESENTATION, nullptr));
        gtk_accessible_update_state(GTK_ACCESSIBLE(layer), GTK_ACCESSIBLE_STATE_HIDDEN, TRUE, -1);
        gtk_widget_set_can_target(layer, FALSE);
    }
    gtk_overlay_add_overlay(GTK_OVERLAY(widget_), layer);
    return Widget(GTK_WIDGET(g_object_ref(layer)));
}

std::optional<HostView::Child> HostView::take(const View* child) {
    const auto found = std::ranges::find(children_, child, [](const Child& c) { return c.view.get(); });
    if (found == children_.end()) return std::nullopt;
    Child taken = std::move(*found);
    children_.erase(found);
    // The host may have taken the layer away, or destroyed the overlay.
    if (taken.layer && widget_ != nullptr && gtk_widget_get_parent(taken.layer.get()) == widget_)
        gtk_overlay_remove_overlay(GTK_OVERLAY(widget_), taken.layer.get());
    return taken;
}

}  // namespace tarvex::gtk
