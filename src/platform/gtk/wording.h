#pragma once

#include <string>
#include <string_view>

#include "tarvex/ui/element.h"

namespace tarvex::gtk {

/// What a text shows, as valid UTF-8: a localized one is looked up in the host's default gettext domain. A translation
/// that does not take the arguments of its key, each once, counts as missing.
std::string wording(const ui::Text& text);

/// `text` with what is no valid UTF-8 replaced.
std::string validText(std::string_view text);

/// `text` with places to break in each word that is longer than any of a language: breaking one takes a time that grows
/// with the square of its length.
std::string withBreaks(const std::string& text);

}  // namespace tarvex::gtk
