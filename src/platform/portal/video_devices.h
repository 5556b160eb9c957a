#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <ranges>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

namespace tarvex::platform {

/// The number of a node named "video<number>".
inline std::optional<unsigned> videoDeviceNumber(std::string_view name) {
    constexpr std::string_view prefix = "video";
    if (!name.starts_with(prefix)) return std::nullopt;
    const std::string_view digits = name.substr(prefix.size());
    unsigned number = 0;
    const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (failure != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return number;
}

/// The device nodes that may be cameras, in the order of their numbers; none is opened.
inline std::vector<std::filesystem::path> videoDeviceNodes(const std::filesystem::path& deviceDirectory) {
    std::vector<std::pair<unsigned, std::filesystem::path>> numbered;
    std::error_code failure;
    std::filesystem::directory_iterator entry(deviceDirectory, failure);
    for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
        if (const auto number = videoDeviceNumber(entry->path().filename().native()))
            numbered.emplace_back(*number, entry->path());
    }
    std::ranges::sort(numbered);
    const auto paths = std::views::values(numbered);
    return {paths.begin(), paths.end()};
}

/// True when this process may open the node; does not open it.
inline bool mayOpen(const std::filesystem::path& node) {
    return ::faccessat(AT_FDCWD, node.c_str(), R_OK | W_OK, AT_EACCESS) == 0;
}

/// True when this user may use cameras: when some video device can be opened for reading and writing,
/// and also when there is no video device at all, since a machine that only measures light must be able to get its
/// user's consent. No device is opened to find out.
inline bool mayUseCamera(const std::filesystem::path& deviceDirectory) {
    const auto nodes = videoDeviceNodes(deviceDirectory);
    return nodes.empty() || std::ranges::any_of(nodes, mayOpen);
}

}  // namespace tarvex::platform
