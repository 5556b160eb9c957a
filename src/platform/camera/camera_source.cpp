#include "platform/camera/camera_source.h"

#include <linux/videodev2.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "platform/portal/video_devices.h"
#include "platform/shared/file_descriptor.h"

namespace tarvex::camera {
namespace {

using Failure = std::unexpected<std::string>;

template <typename... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};

std::vector<std::filesystem::path> candidates(const CameraDevice& device) {
    if (device.node) return {*device.node};
    return platform::videoDeviceNodes("/dev");
}

std::expected<void, std::string> checkFile(const std::filesystem::path& path) {
    std::error_code failure;
    if (std::filesystem::is_regular_file(path, failure)) return {};
    return Failure("there is no file " + path.string());
}

std::expected<PipeWireNode, std::string> nodeOf(const PortalCamera& portal) {
    // A negative one, as a failed call leaves it, would open the system's own remote.
    if (portal.fileDescriptor && *portal.fileDescriptor >= 0)
        return PipeWireNode{.remote = *portal.fileDescriptor, .node = portal.node};
    return Failure("the portal handed over no camera");
}

std::expected<void, std::string> checkDevices(const CameraDevice& device) {
    const auto nodes = candidates(device);
    if (std::ranges::any_of(nodes, platform::mayOpen)) return {};
    if (nodes.empty()) return Failure("this machine has no camera");
    std::error_code failure;
    if (!std::filesystem::exists(nodes.front(), failure))
        return Failure("there is no camera " + nodes.front().string());
    return Failure("this user may not open the camera " + nodes.front().string() + " (see the group of the file)");
}

/// The name that a camera gives itself, which may be empty.
std::expected<std::string, std::string> nameOf(const std::filesystem::path& node) {
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
        auto name = nameOf(node);
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

std::expected<NamedSource, std::string> openUnnamed(const OpenedSource& source) {
    auto frames = openFrameSource(source);
    if (!frames) return Failure(frames.error());
    return NamedSource{.frames = std::move(*frames)};
}

std::expected<NamedSource, std::string> openPortal(const PortalCamera& portal) {
    const auto node = nodeOf(portal);
    if (!node) return Failure(node.error());
    return openUnnamed(*node);
}

}  // namespace

CameraSource::CameraSource(Source source) : source_(std::move(source)) {}

std::expected<void, std::string> CameraSource::check() const {
    return std::visit(Overloaded{[](const CameraDevice& device) { return checkDevices(device); },
                                 [](const PortalCamera& portal) -> std::expected<void, std::string> {
                                     if (const auto node = nodeOf(portal); !node) return Failure(node.error());
                                     return {};
                                 },
                                 [](const VideoFile& video) { return checkFile(video.path); },
                                 [](const Pictures& pictures) -> std::expected<void, std::string> {
                                     if (pictures.paths.empty()) return Failure("the list of pictures is empty");
                                     for (const auto& path : pictures.paths) {
                                         if (auto there = checkFile(path); !there) return there;
                                     }
                                     return {};
                                 }},
                      source_);
}

std::expected<NamedSource, std::string> CameraSource::open() {
    return std::visit(Overloaded{[](const CameraDevice& device) { return openDevice(device); },
                                 [](const PortalCamera& portal) { return openPortal(portal); },
                                 [](const VideoFile& video) { return openUnnamed(Video{.path = video.path}); },
                                 [&](const Pictures& pictures) {
                                     const auto& path = pictures.paths[nextPicture_];
                                     nextPicture_ = (nextPicture_ + 1) % pictures.paths.size();
                                     return openUnnamed(Picture{.path = path});
                                 }},
                      source_);
}

}  // namespace tarvex::camera
