#include "platform/linux/device_node_capture_device.h"

#include <algorithm>
#include <chrono>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/posix/video_devices.h"

namespace tarvex::platform {
namespace {

bool mayUseVideo(const std::filesystem::path& deviceDirectory) {
    const auto nodes = videoDeviceNodes(deviceDirectory);
    return nodes.empty() || std::ranges::any_of(nodes, mayOpen);
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
