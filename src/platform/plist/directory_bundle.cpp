#include "platform/plist/directory_bundle.h"

#include <glib.h>

#include <algorithm>
#include <cstdlib>
#include <system_error>
#include <vector>

#include "platform/plist/property_list.h"

namespace tarvex::platform {
namespace {

// Messages in the locale "C" stay as they are, whatever LANGUAGE names: so does gettext.
bool messagesStayUntranslated() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        const std::string_view locale = value != nullptr ? value : "";
        if (!locale.empty()) return locale == "C" || locale == "POSIX";
    }
    return true;
}

// "de_AT.UTF-8", "de_AT", "de.UTF-8", "de" for a process that speaks Austrian German.
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

}  // namespace

std::optional<std::filesystem::path> DirectoryBundle::pathForResource(std::string_view name,
                                                                      std::string_view type) const {
    std::string file(name);
    if (!type.empty()) file.append(".").append(type);
    auto path = directory_ / file;
    std::error_code failure;
    const auto status = std::filesystem::symlink_status(path, failure);
    if (status.type() == std::filesystem::file_type::not_found) return std::nullopt;
    return path;
}

std::optional<std::string> DirectoryBundle::stringForInfoDictionaryKey(std::string_view key) const {
    for (const auto& language : messageLanguages()) {
        const auto strings = PropertyList::withContentsOfFile(directory_ / (language + ".lproj") / "InfoPlist.strings");
        if (strings && strings->contains(key)) return strings->stringForKey(key);
    }
    return informationString(key);
}

std::optional<std::string> DirectoryBundle::bundleIdentifier() const {
    return informationString("CFBundleIdentifier");
}

std::optional<std::string> DirectoryBundle::informationString(std::string_view key) const {
    const auto information = PropertyList::withContentsOfFile(directory_ / "Info.plist");
    return information ? information->stringForKey(key) : std::nullopt;
}

}  // namespace tarvex::platform
