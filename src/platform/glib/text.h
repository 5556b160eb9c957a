#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarvex::platform {

/// True for UTF-8 without U+0000.
bool isUtf8(std::string_view text);

/// The languages of the process's messages by preference, each as the environment spells it and with '-' in place of
/// '_': "de_AT.UTF-8", "de-AT.UTF-8", "de_AT", "de-AT", "de.UTF-8", "de" for Austrian German. Empty in the locale "C",
/// whatever LANGUAGE names, as with gettext. Never a path.
std::vector<std::string> messageLanguages();

}  // namespace tarvex::platform
