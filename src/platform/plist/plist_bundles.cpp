#include "platform/plist/plist_bundles.h"

#include <system_error>

#include "platform/glib/text.h"
#include "platform/shared/own_file.h"

namespace tarvex::platform {
namespace {

std::filesystem::path bundleDirectoryOfExecutable() {
    const auto directories = bundleDirectoriesOf(executablePath());
    for (const auto& directory : directories) {
        if (DirectoryBundle(directory).pathForResource("Info", "plist")) return directory;
    }
    return directories.front();
}

}  // namespace

std::optional<std::filesystem::path> DirectoryBundle::pathForResource(std::string_view name,
                                                                      std::string_view type) const {
    std::string file(name);
    if (!type.empty()) file.append(".").append(type);
    auto path = directory_ / file;
    std::error_code failure;
    const auto status = std::filesystem::symlink_status(path, failure);
    if (status.type() != std::filesystem::file_type::not_found) return path;
    return !information_.empty() && path == informationFile() ? std::optional(std::move(path)) : std::nullopt;
}

std::optional<std::string> DirectoryBundle::stringForInfoDictionaryKey(std::string_view key) const {
    for (const auto& language : messageLanguages()) {
        const auto strings = PropertyList::withContentsOfFile(directory_ / (language + ".lproj") / "InfoPlist.strings");
        if (strings && strings->contains(key)) return strings->stringForKey(key);
    }
    const auto dictionary = informationDictionary();
    return dictionary ? dictionary->stringForKey(key) : std::nullopt;
}

std::optional<std::string> DirectoryBundle::bundleIdentifier() const {
    const auto dictionary = informationDictionary();
    return dictionary ? dictionary->stringForKey("CFBundleIdentifier") : std::nullopt;
}

std::unique_ptr<PropertyList> DirectoryBundle::informationDictionary() const {
    if (!DirectoryBundle(directory_).pathForResource("Info", "plist"))
        return information_.empty() ? nullptr : std::make_unique<PropertyList>(information_);
    const auto list = PropertyList::withContentsOfFile(informationFile());
    return list ? list->withGapsFilled(information_) : nullptr;
}

LibraryBundle::LibraryBundle() : LibraryBundle(fileOfThisLibrary().parent_path()) {}

LibraryBundle::LibraryBundle(const std::filesystem::path& libraryDirectory)
    : directories_(resourceDirectoriesOf(libraryDirectory)) {}

std::optional<std::filesystem::path> LibraryBundle::pathForResource(std::string_view name,
                                                                    std::string_view type) const {
    for (const auto& directory : directories_) {
        if (auto path = DirectoryBundle(directory).pathForResource(name, type)) return path;
    }
    return std::nullopt;
}

std::optional<std::string> LibraryBundle::stringForInfoDictionaryKey(std::string_view) const {
    return std::nullopt;
}

std::optional<std::string> LibraryBundle::bundleIdentifier() const {
    return std::string(libraryBundleIdentifier);
}

PlistBundles::PlistBundles(std::optional<std::filesystem::path> bundleDirectory, PropertyList::Entries information)
    : mainBundle_(bundleDirectory ? absolutePath(*std::move(bundleDirectory)) : bundleDirectoryOfExecutable(),
                  std::move(information)) {}

const Bundle* PlistBundles::bundleWithIdentifier(std::string_view identifier) const {
    if (identifier == libraryBundleIdentifier) return &libraryBundle_;
    return mainBundle_.bundleIdentifier() == identifier ? &mainBundle_ : nullptr;
}

std::unique_ptr<PropertyListDictionary> PlistBundles::dictionaryWithContentsOfFile(
    const std::filesystem::path& path) const {
    if (path == mainBundle_.informationFile()) return mainBundle_.informationDictionary();
    return PropertyList::withContentsOfFile(path);
}

}  // namespace tarvex::platform
