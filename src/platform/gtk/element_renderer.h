#pragma once

#include <gtk/gtk.h>

#include "tarvex/ui/element.h"

namespace tarvex::gtk {

/// A widget with a floating reference that shows `element`. GTK has been initialised.
GtkWidget* render(const ui::Element& element);

/// The same, as a screen of its own: when the last child of its stack is a button, that button stays in view, and
/// where the room is short, what stands above it scrolls.
GtkWidget* renderScreen(const ui::Element& element);

}  // namespace tarvex::gtk
