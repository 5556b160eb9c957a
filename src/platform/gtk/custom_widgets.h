#pragma once

#include <gtk/gtk.h>

#include <string_view>

#include "tarvex/ui/element.h"

// Layouts and drawings that GTK has no widget for. Each function returns a new widget with a floating reference.
namespace tarvex::gtk {

/// `child` within a frame of its own size.
GtkWidget* makeFrame(const ui::FixedFrame& frame, GtkWidget* child);
GtkWidget* makeFrame(const ui::FlexibleFrame& frame, GtkWidget* child);

/// Adaptation of a drawing to the room that it is allocated.
struct Fit {
    bool resizable = false;    ///< grows and shrinks with the room
    bool keepsAspect = false;  ///< without distortion
};

/// A drawing in the foreground colour of its style, hidden from accessibility. "gearshape.2.fill" is two gears, any
/// other name an outlined square.
GtkWidget* makeSymbol(std::string_view systemName, Fit fit);

/// The largest disc that fits.
GtkWidget* makeCircle();

}  // namespace tarvex::gtk
