#pragma once

#include <string>

#include "tarvex/ui/element.h"

namespace tarvex::gtk {

/// Style classes of the elements' looks; each call makes sure that the default display knows them. They take the
/// colours of the theme, so that dark and high-contrast ones change them.
std::string foregroundClass(ui::Color color);
std::string backgroundClass(ui::Color color);
std::string fontClass(ui::TextStyle style);
std::string boldClass();
std::string cornerClass(double radius);

/// For a button that wears a background instead of the theme's own look.
std::string plainButtonClass();

}  // namespace tarvex::gtk
