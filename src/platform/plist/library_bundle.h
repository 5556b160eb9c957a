#pragma once

#include <array>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "tarvex/platform/bundle.h"

namespace tarvex::platform {

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
    std::array<std::filesystem::path, 2> candidates_;
};

}  // namespace tarvex::platform
