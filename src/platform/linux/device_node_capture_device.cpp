#include "platform/linux/device_node_capture_device.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace tarvex::platform {
namespace {

bool isVideoDevice(std::string_view name) {
    constexpr std::string_view prefix = "video";
    if (!name.starts_with(prefix) || name.size() == prefix.size()) return false;
    return std::ranges::all_of(name.substr(prefix.size()), [](char c) { return c >= '0' && c <= '9'; });
}

bool mayOpen(const std::filesystem::path& device) {
    return ::faccessat(AT_FDCWD, device.c_str(), R_OK | W_OK, AT_EACCESS) == 0;
}

bool mayUseVideo(const std::filesystem::path& deviceDirectory) {
    bool anyDevice = false;
    std::error_code failure;
    std::filesystem::directory_iterator entry(deviceDirectory, failure);
    for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
        if (!isVideoDevice(entry->path().filename().native())) continue;
        if (mayOpen(entry->path())) return true;
        anyDevice = true;
    }
    return !anyDevice;
}

}  // namespace

DeviceNodeCaptureDevice::DeviceNodeCaptureDevice(DispatchQueues& queues, std::filesystem::path deviceDirectory)
    : queues_(queues), deviceDirectory_(std::move(deviceDirectory)) {}

void DeviceNodeCaptureDevice::requestAccessForVideo(std::function<void(bool)> handler) {
    // Held until the request returns: the background thread may be faster.
    const auto requesting = std::make_shared<std::mutex>();
    const std::scoped_lock lock(*requesting);
    queues_.backgroundAfter(std::chrono::nanoseconds::zero(),
                            [requesting, directory = deviceDirectory_, handler = std::move(handler)] {
                                {
                                    const std::scoped_lock returned(*requesting);
                                }
                                handler(mayUseVideo(directory));
                            });
}

}  // namespace tarvex::platform
