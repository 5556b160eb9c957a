#include "platform/camera/capture/camera_name.h"

#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "platform/shared/file_descriptor.h"

namespace tarvex::camera {
namespace {

using platform::FileDescriptor;

std::string reason() {
    return std::generic_category().message(errno);
}

}  // namespace

std::expected<std::string, std::string> cameraName(const std::filesystem::path& node) {
    const auto device = FileDescriptor::open(node, O_RDWR | O_NONBLOCK);
    if (!device) return std::unexpected("the camera " + node.string() + " cannot be opened: " + reason());
    v4l2_capability capability{};
    if (::ioctl(device->number(), VIDIOC_QUERYCAP, &capability) != 0)
        return std::unexpected(node.string() + " is no camera");
    const bool ownCapabilities = (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0;
    const auto capabilities = ownCapabilities ? capability.device_caps : capability.capabilities;
    if ((capabilities & (V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_VIDEO_CAPTURE_MPLANE)) == 0)
        return std::unexpected(node.string() + " takes no pictures");
    const auto* card = reinterpret_cast<const char*>(capability.card);
    return std::string(card, ::strnlen(card, sizeof(capability.card)));
}

}  // namespace tarvex::camera
