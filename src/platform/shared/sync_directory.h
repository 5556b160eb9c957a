#pragma once

#include <filesystem>

#include "platform/shared/file_descriptor.h"

namespace tarvex::platform {

/// Makes durable what was created in the directory; false with errno.
inline bool syncDirectory(const std::filesystem::path& path) {
    const auto directory = FileDescriptor::open(path, O_RDONLY | O_DIRECTORY);
    return directory && ::fsync(directory->number()) == 0;
}

/// The directory that holds the entry of this name.
inline std::filesystem::path directoryOf(const std::filesystem::path& path) {
    return path.has_parent_path() ? path.parent_path() : ".";
}

}  // namespace tarvex::platform
