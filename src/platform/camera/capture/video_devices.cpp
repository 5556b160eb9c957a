#include "platform/camera/capture/video_devices.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <ranges>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/posix/file_descriptor.h"

namespace tarvex::camera {
namespace {

using platform::FileDescriptor;

/// The number of a "video<number>" node.
std::optional<unsigned> nodeNumber(std::string_view name) {
    constexpr std::string_view prefix = "video";
    if (!name.starts_with(prefix)) return std::nullopt;
    const std::string_view digits = name.substr(prefix.size());
    unsigned number = 0;
    const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (failure != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
    return number;
}

std::string reason() {
    return std::generic_category().message(errno);
}

}  // namespace

std::vector<std::filesystem::path> videoDeviceNodes(const std::filesystem::path& deviceDirectory) {
    std::vector<std::pair<unsigned, std::filesystem::path>> numbered;
    std::error_code failure;
    std::filesystem::directory_iterator entry(deviceDirectory, failure);
    for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
        if (const auto number = nodeNumber(entry->path().filename().native()))
            numbered.emplace_back(*number, entry->path());
    }
    std::ranges::sort(numbered);
    const auto paths = std::views::values(numbered);
    return {paths.begin(), paths.end()};
}

bool mayOpen(const std::filesystem::path& node) {
    return ::faccessat(AT_FDCWD, node.c_str(), R_OK | W_OK, AT_EACCESS) == 0;
}

std::expected<std::string, std::string> cameraName(const std::filesystem::path& node) {
    const FileDescriptor device(::open(node.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (device.number() < 0) return std::unexpected("the camera " + node.string() + " cannot be opened: " + reason());
    v4l2_capability capability{};
    if (::ioctl(device.number(), VIDIOC_QUERYCAP, &capability) != 0)
        return std::unexpected(node.string() + " is no camera");
    const bool ownCapabilities = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0;
    const auto capabilities = ownCapabilities ? capability.device_caps : capability.capabilities;
    if ((capabilities & (V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE)) == 0)
        return std::unexpected(node.string() + " takes no pictures");
    const auto* card = reinterpret_cast<const char*>(capability.card);
    return std::string(card, ::strnlen(card, sizeof(capability.card)));
}

}  // namespace tarvex::camera
