#pragma once

#include <gtk/gtk.h>

#include <map>
#include <memory>

#include "tarvex/view.h"

namespace tarvex::gtk {

/// A host's widget as a view. Children that are not widgets of this module, such as a face tracker's, are transparent.
class HostView final : public View {
public:
    explicit HostView(GtkWidget* widget);
    ~HostView() override;
    HostView(const HostView&) = delete;
    HostView& operator=(const HostView&) = delete;

    void addSubview(std::shared_ptr<View> child) override;

private:
    struct Unref {
        void operator()(GtkWidget* widget) const { g_object_unref(widget); }
    };
    using Widget = std::unique_ptr<GtkWidget, Unref>;

    /// The widget that `child` wraps; null when it wraps none of this module.
    static Widget widgetOf(const View& child);

    void willRemoveSubview(View& child) override;
    Widget makeLayer(const View& child) const;
    void hide(GtkWidget* layer) const;

    GtkWidget* widget_;                     // null once it is gone
    std::map<const View*, Widget> layers_;  // no entry for a child that nothing shows
};

}  // namespace tarvex::gtk
