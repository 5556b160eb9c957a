#include "platform/plist/library_bundle.h"

#include <dlfcn.h>
#include <link.h>

#include <system_error>

#include "platform/plist/directory_bundle.h"
#include "platform/shared/executable.h"

namespace tarvex::platform {
namespace {

constexpr char insideThisLibrary = 0;

// The dynamic linker knows the main program by no name, and `dladdr` would give what it was called as.
std::filesystem::path fileOfThisLibrary() {
    Dl_info information{};
    void* map = nullptr;
    if (::dladdr1(&insideThisLibrary, &information, &map, RTLD_DL_LINKMAP) == 0) return executablePath();
    const std::filesystem::path name = static_cast<const link_map*>(map)->l_name;
    return name.empty() ? executablePath() : name;
}

std::filesystem::path withoutLinks(const std::filesystem::path& path) {
    std::error_code failure;
    auto resolved = std::filesystem::canonical(path, failure);
    return failure ? path : resolved;
}

}  // namespace

LibraryBundle::LibraryBundle() : LibraryBundle(withoutLinks(fileOfThisLibrary()).parent_path()) {}

LibraryBundle::LibraryBundle(const std::filesystem::path& libraryDirectory)
    : candidates_{libraryDirectory.parent_path() / "share" / "tarvex",
                  libraryDirectory.parent_path().parent_path() / "share" / "tarvex"} {}

std::optional<std::filesystem::path> LibraryBundle::pathForResource(std::string_view name,
                                                                    std::string_view type) const {
    for (const auto& directory : candidates_) {
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

}  // namespace tarvex::platform
