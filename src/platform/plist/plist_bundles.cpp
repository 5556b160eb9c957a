#include "platform/plist/plist_bundles.h"

#include <utility>

#include "platform/plist/property_list.h"
#include "platform/shared/absolute_path.h"
#include "platform/shared/executable.h"

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

PlistBundles::PlistBundles(std::optional<std::filesystem::path> bundleDirectory)
    : mainBundle_(bundleDirectory ? absolutePath(*std::move(bundleDirectory)) : bundleDirectoryOfExecutable()) {}

const Bundle* PlistBundles::bundleWithIdentifier(std::string_view identifier) const {
    if (identifier == libraryBundleIdentifier) return &libraryBundle_;
    return mainBundle_.bundleIdentifier() == identifier ? &mainBundle_ : nullptr;
}

std::unique_ptr<PropertyListDictionary> PlistBundles::dictionaryWithContentsOfFile(
    const std::filesystem::path& path) const {
    return PropertyList::withContentsOfFile(path);
}

}  // namespace tarvex::platform
