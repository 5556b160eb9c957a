#pragma once

#include <sys/stat.h>

#include <filesystem>

namespace tarvex::platform {

/// Permissions of the library's files and directories, which are for this user alone.
inline constexpr mode_t privateFile = S_IRUSR | S_IWUSR;
inline constexpr mode_t privateDirectory = S_IRWXU;

/// Creates the directory and its missing parents, each for this user alone whatever the umask. Existing directories
/// stay as they are. A failure shows when the directory is used.
void createPrivateDirectory(const std::filesystem::path& path);

/// Removes other users' permissions from a file or directory that belongs to this user.
void makePrivate(const std::filesystem::path& path);

/// Makes durable what was created in the directory; false with errno.
bool syncDirectory(const std::filesystem::path& path);

/// The directory that holds the entry of this name.
inline std::filesystem::path directoryOf(const std::filesystem::path& path) {
    return path.has_parent_path() ? path.parent_path() : ".";
}

}  // namespace tarvex::platform
