#pragma once

#include <string>
#include <string_view>

#include "tarvex/ui/element.h"

namespace tarvex::gtk {

/// The wording of `text`, as valid UTF-8. A localized text is looked up in the host's default gettext domain; a
/// translation without as many placeholders as its key counts as missing.
std::string wording(const ui::Text& text);

/// `text` with each invalid UTF-8 sequence replaced.
std::string validText(std::string_view text);

/// `text` with break opportunities in each word that is longer than those of any language: the time to wrap a word
/// grows with the square of its length.
std::string withBreaks(const std::string& text);

}  // namespace tarvex::gtk
