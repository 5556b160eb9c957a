#pragma once

#include <gtk/gtk.h>

#include "tarvex/ui/element.h"

namespace tarvex::gtk {

/// `child` within a frame of its own size.
GtkWidget* makeFrame(const ui::FixedFrame& frame, GtkWidget* child);
GtkWidget* makeFrame(const ui::FlexibleFrame& frame, GtkWidget* child);

}  // namespace tarvex::gtk
