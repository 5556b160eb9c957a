#pragma once

#include <filesystem>
#include <system_error>
#include <utility>

namespace tarvex::platform {

/// The same place whatever the working directory will be; `path` itself when there is no working directory.
inline std::filesystem::path absolutePath(std::filesystem::path path) {
    std::error_code failure;
    auto absolute = std::filesystem::absolute(path, failure);
    if (!failure) path = std::move(absolute);
    return path;
}

}  // namespace tarvex::platform
