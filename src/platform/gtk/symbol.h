#pragma once

#include <gtk/gtk.h>

#include <string_view>

namespace tarvex::gtk {

/// How a drawing uses the room that it gets.
struct Fit {
    bool resizable = false;    ///< may be larger and smaller than its own size
    bool keepsAspect = false;  ///< and is not distorted then
};

/// A drawing in the colour of its style's foreground, which nobody needs to hear of. "gearshape.2.fill" is two gears,
/// any other name an outlined square in their place.
GtkWidget* makeSymbol(std::string_view systemName, Fit fit);

/// The largest disc that fits.
GtkWidget* makeCircle();

}  // namespace tarvex::gtk
