#pragma once

#include <string>

#include "tarvex/ui/element.h"

namespace tarvex::gtk {

/// Names of style classes. Each call installs the rules for the default display. Colours derive from the theme's, so
/// that dark and high-contrast themes apply.
std::string foregroundClass(ui::Color color);
std::string backgroundClass(ui::Color color);
std::string fontClass(ui::TextStyle style);
std::string boldClass();
std::string cornerClass(double radius);

/// For a button with a background of its own instead of the theme's look.
std::string plainButtonClass();

}  // namespace tarvex::gtk
