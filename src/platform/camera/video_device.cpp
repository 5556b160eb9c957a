#include "platform/camera/video_device.h"

#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/portal/video_devices.h"
#include "platform/shared/file_descriptor.h"

namespace tarvex::camera {
namespace {

using Failure = std::unexpected<std::string>;

std::vector<std::filesystem::path> candidates(const CameraDevice& device) {
    if (device.node) return {*device.node};
    return platform::videoDeviceNodes("/dev");
}

}  // namespace

std::expected<void, std::string> checkDevices(const CameraDevice& device) {
    const auto nodes = candidates(device);
    if (std::ranges::any_of(nodes, platform::mayOpen)) return {};
    if (nodes.empty()) return Failure("this machine has no camera");
    std::error_code failure;
    if (!std::filesystem::exists(nodes.front(), failure))
        return Failure("there is no camera " + nodes.front().string());
    return Failure("this user may not open the camera " + nodes.front().string() + " (see the group of the file)");
}

std::expected<std::string, std::string> nameOfDevice(const std::filesystem::path& node) {
    const auto device = platform::FileDescriptor::open(node, O_RDWR | O_NONBLOCK);
    if (!device)
        return Failure("the camera " + node.string() + " cannot be opened: " + std::generic_category().message(errno));
    v4l2_capability capability{};
    if (::ioctl(device->number(), VIDIOC_QUERYCAP, &capability) != 0) return Failure(node.string() + " is no camera");
    const bool ownCapabilities = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0;
    const auto capabilities = ownCapabilities ? capability.device_caps : capability.capabilities;
    if ((capabilities & (V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE)) == 0)
        return Failure(node.string() + " takes no pictures");
    const auto* card = reinterpret_cast<const char*>(capability.card);
    return std::string(card, ::strnlen(card, sizeof(capability.card)));
}

std::expected<NamedSource, std::string> openDevice(const CameraDevice& device) {
    std::string why = "this machine has no camera";
    for (const auto& node : candidates(device)) {
        auto name = nameOfDevice(node);
        if (!name) {
            why = name.error();
            continue;
        }
        auto frames = openFrameSource(node);
        if (!frames) return Failure(frames.error());
        return NamedSource{.frames = std::move(*frames), .camera = std::move(*name)};
    }
    return Failure(why);
}

}  // namespace tarvex::camera
