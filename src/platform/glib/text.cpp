#include "platform/glib/text.h"

#include <glib.h>

#include <algorithm>
#include <cstdlib>

namespace tarvex::platform {
namespace {

bool messagesStayUntranslated() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        const std::string_view locale = value != nullptr ? value : "";
        if (!locale.empty()) return locale == "C" || locale == "POSIX";
    }
    return true;
}

}  // namespace

bool isUtf8(std::string_view text) {
    return g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE;
}

std::vector<std::string> messageLanguages() {
    std::vector<std::string> languages;
    if (messagesStayUntranslated()) return languages;
    for (const gchar* const* name = g_get_language_names(); *name != nullptr; ++name) {
        std::string language(*name);
        if (language.contains('/')) continue;
        languages.push_back(language);
        std::ranges::replace(language, '_', '-');
        if (language != languages.back()) languages.push_back(language);
    }
    return languages;
}

}  // namespace tarvex::platform
