#pragma once

#include <filesystem>

namespace tarvex::platform {

/// Creates the directory and the parents that it lacks, each for this user alone (0700) whatever the umask. What is
/// there already stays as it is. Failures show when the directory is used.
void createPrivateDirectory(const std::filesystem::path& path);

/// Takes other users' permissions from a directory, when it belongs to this user.
void makeDirectoryPrivate(const std::filesystem::path& path);

}  // namespace tarvex::platform
