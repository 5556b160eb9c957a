#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "tarvex/platform/bundle.h"

namespace tarvex::platform {

/// A bundle whose resources are the files of one directory. Everything is read afresh on every call.
///
/// A localized value comes from <language>.lproj/InfoPlist.strings, a property list too. The languages are those of
/// the environment (LANGUAGE, else LC_ALL, LC_MESSAGES, LANG), in the order of preference that messages follow; for
/// de_AT they are looked for in de_AT.lproj, de-AT.lproj and de.lproj. The locale "C" has none, as with gettext. The
/// first language that has the key decides: a value there that is no string is absent, whatever others hold.
class DirectoryBundle final : public Bundle {
public:
    explicit DirectoryBundle(std::filesystem::path directory) : directory_(std::move(directory)) {}

    /// Also answers with what is there but cannot be read; only what is known to be missing is absent.
    std::optional<std::filesystem::path> pathForResource(std::string_view name, std::string_view type) const override;
    std::optional<std::string> stringForInfoDictionaryKey(std::string_view key) const override;
    std::optional<std::string> bundleIdentifier() const override;

private:
    std::optional<std::string> informationString(std::string_view key) const;

    std::filesystem::path directory_;
};

}  // namespace tarvex::platform
