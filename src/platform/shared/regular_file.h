#pragma once

#include <fcntl.h>

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace tarvex::platform {

/// The bytes of the regular file at `path`; absent when it is no regular file, cannot be read, or holds more than
/// `maximumSize` bytes. Waits neither for the other end of a FIFO nor for a device node; an attribute of the
/// kernel's tree may take as long as its driver does. A relative path begins at the open directory `start`.
std::optional<std::string> contentsOfRegularFile(const std::filesystem::path& path, std::size_t maximumSize,
                                                 int start = AT_FDCWD);

}  // namespace tarvex::platform
