#pragma once

#include <array>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/plist/property_list.h"
#include "tarvex/platform/bundle.h"

namespace tarvex::platform {

/// A bundle whose resources are the files of one directory. Everything is read afresh on every call.
///
/// A localized value comes from <language>.lproj/InfoPlist.strings, a property list too. The languages are those of
/// the environment (LANGUAGE, else LC_ALL, LC_MESSAGES, LANG), in the order of preference that messages follow; for
/// de_AT they are looked for in de_AT.lproj, de-AT.lproj and de.lproj. The locale "C" has none, as with gettext. The
/// first language that has the key decides: a value there that is no string is absent, whatever others hold.
///
/// `information` stands for what Info.plist does not say, or for the whole file where there is none. What a damaged one
/// says is not known, so that nothing stands for it.
class DirectoryBundle final : public Bundle {
public:
    explicit DirectoryBundle(std::filesystem::path directory, PropertyList::Entries information = {})
        : directory_(std::move(directory)), information_(std::move(information)) {}

    /// Also the path of what exists but cannot be read, and of an Info.plist that `information` stands for; absent only
    /// for what is known to be missing.
    std::optional<std::filesystem::path> pathForResource(std::string_view name, std::string_view type) const override;
    std::optional<std::string> stringForInfoDictionaryKey(std::string_view key) const override;
    std::optional<std::string> bundleIdentifier() const override;

    std::filesystem::path informationFile() const { return directory_ / "Info.plist"; }
    /// The Info.plist, gaps filled; null when it is damaged, or there is none and nothing stands for it.
    std::unique_ptr<PropertyList> informationDictionary() const;

private:
    std::filesystem::path directory_;
    PropertyList::Entries information_;
};

/// The library's own resources: share/tarvex beside the directory from which the library was loaded, or one level
/// further up where libraries lie in a directory of their architecture. The library can be moved with them.
class LibraryBundle final : public Bundle {
public:
    /// The bundle of the library, or of the executable, that holds this code.
    LibraryBundle();
    explicit LibraryBundle(const std::filesystem::path& libraryDirectory);

    std::optional<std::filesystem::path> pathForResource(std::string_view name, std::string_view type) const override;
    std::optional<std::string> stringForInfoDictionaryKey(std::string_view key) const override;  ///< always absent
    std::optional<std::string> bundleIdentifier() const override;

private:
    std::array<std::filesystem::path, 2> directories_;
};

/// The host's bundle and the library's own, on property lists and directories.
class PlistBundles final : public Bundles {
public:
    /// The host's bundle is `bundleDirectory`, else the first of the directories that belong to its executable which
    /// holds an Info.plist now, readable or not.
    /// `information` is what the host says of itself in code.
    explicit PlistBundles(std::optional<std::filesystem::path> bundleDirectory, PropertyList::Entries information = {});

    const Bundle& mainBundle() const override { return mainBundle_; }
    const Bundle* bundleWithIdentifier(std::string_view identifier) const override;
    std::unique_ptr<PropertyListDictionary> dictionaryWithContentsOfFile(
        const std::filesystem::path& path) const override;

private:
    DirectoryBundle mainBundle_;
    LibraryBundle libraryBundle_;
};

}  // namespace tarvex::platform
