#pragma once

#include <expected>
#include <filesystem>
#include <optional>
#include <string>

namespace tarvex::tool {

/// What names the host whose data is meant.
struct Host {
    std::optional<std::filesystem::path> bundle = std::nullopt;  ///< the directory of its Info.plist
    std::optional<std::string> identifier = std::nullopt;        ///< the list wins, as it does for the host itself
    std::optional<std::filesystem::path> data = std::nullopt;

    bool isNamed() const { return bundle || identifier || data; }
};

/// The host's identifier; absent where its list names none. One sentence when the list is not there or cannot be read.
std::expected<std::optional<std::string>, std::string> identifierOf(const Host& host);

/// The directory of the host's data, whether it is there or not; nothing is made. One sentence when nothing says where
/// it is.
std::expected<std::filesystem::path, std::string> dataDirectoryOf(const Host& host);

}  // namespace tarvex::tool
