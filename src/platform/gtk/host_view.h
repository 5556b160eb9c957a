#pragma once

#include <gtk/gtk.h>

#include <memory>
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
    struct Child {
        std::shared_ptr<View> view;
        GtkWidget* layer;  // owned by the overlay; null when nothing shows it
    };

    static std::vector<HostView*>& all();

    GtkWidget* makeLayer(const View& child) const;
    void remove(const View* child);

    GtkWidget* widget_;  // null once it is gone
    std::vector<Child> children_;
};

}  // namespace tarvex::gtk
