#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace tarvex::platform {

/// The bytes of the regular file at `path`; absent for anything that is no regular file, cannot be read, or holds more
/// than `maximumSize` bytes. Never waits: neither for the other end of a FIFO nor for a device.
std::optional<std::string> contentsOfRegularFile(const std::filesystem::path& path, std::size_t maximumSize);

}  // namespace tarvex::platform
