#pragma once

#include <gtk/gtk.h>

#include <memory>
#include <optional>
#include <vector>

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
    struct Child {
        std::shared_ptr<View> view;
        Widget layer;  // null when nothing shows it
    };

    static std::vector<HostView*>& all();

    Widget makeLayer(const View& child) const;
    /// What the child was here, no longer shown; absent when it is no child.
    std::optional<Child> take(const View* child);

    GtkWidget* widget_;  // null once it is gone
    std::vector<Child> children_;
};

}  // namespace tarvex::gtk
