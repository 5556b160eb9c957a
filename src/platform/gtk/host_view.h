#pragma once

#include <gtk/gtk.h>

#include "tarvex/view.h"

namespace tarvex::gtk {

/// A host's widget as a view. Where the widget is an overlay, children of this class lie over it as its layers; other
/// children, such as a face tracker's view, show nothing.
class HostView final : public View {
public:
    /// Holds `widget`, which may be null, weakly.
    explicit HostView(GtkWidget* widget);
    ~HostView() override;
    HostView(const HostView&) = delete;
    HostView& operator=(const HostView&) = delete;

    void addSubview(std::shared_ptr<View> child) override;

private:
    void willRemoveSubview(View& child) override;
    void layOver(GtkWidget* overlay);
    void takeOff();

    GtkWidget* widget_ = nullptr;   // null once it is gone
    GtkWidget* overlay_ = nullptr;  // has the widget as a layer; null once it is gone
};

}  // namespace tarvex::gtk
