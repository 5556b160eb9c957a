#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/plist/directory_bundle.h"
#include "platform/plist/library_bundle.h"
#include "tarvex/platform/bundle.h"

namespace tarvex::platform {

/// The host's bundle and the library's own, on property lists and directories.
class PlistBundles final : public Bundles {
public:
    /// The host's bundle is `bundleDirectory`, else the first of the directories that belong to its executable where
    /// an Info.plist lies now, readable or not.
    explicit PlistBundles(std::optional<std::filesystem::path> bundleDirectory);

    const Bundle& mainBundle() const override { return mainBundle_; }
    const Bundle* bundleWithIdentifier(std::string_view identifier) const override;
    std::unique_ptr<PropertyListDictionary> dictionaryWithContentsOfFile(
        const std::filesystem::path& path) const override;

private:
    DirectoryBundle mainBundle_;
    LibraryBundle libraryBundle_;
};

}  // namespace tarvex::platform
