#pragma once

#include <gtk/gtk.h>

#include "tarvex/ui/element.h"

namespace tarvex::gtk {

/// A new widget that shows `element`, with a floating reference. Requires that GTK is initialised.
GtkWidget* render(const ui::Element& element);

/// The same as a whole screen: a button that is the last child of its stack stays in view, and the content above it
/// scrolls where the room is short.
GtkWidget* renderScreen(const ui::Element& element);

}  // namespace tarvex::gtk
