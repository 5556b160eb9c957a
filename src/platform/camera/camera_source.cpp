#include "platform/camera/camera_source.h"

#include <system_error>
#include <utility>

#include "platform/camera/user_camera.h"
#include "platform/camera/video_device.h"

namespace tarvex::camera {
namespace {

using Failure = std::unexpected<std::string>;

template <typename... Cases>
struct Overloaded : Cases... {
    using Cases::operator()...;
};

std::expected<void, std::string> checkFile(const std::filesystem::path& path) {
    std::error_code failure;
    if (std::filesystem::is_regular_file(path, failure)) return {};
    return Failure("there is no file " + path.string());
}

std::expected<void, std::string> checkPortal(const PortalCamera& portal) {
    // A negative one, as a failed call leaves it, would open the system's own remote.
    if (portal.fileDescriptor && *portal.fileDescriptor >= 0) return {};
    return Failure("the portal handed over no camera");
}

std::expected<NamedSource, std::string> openUnnamed(const OpenedSource& source) {
    auto frames = openFrameSource(source);
    if (!frames) return Failure(frames.error());
    return NamedSource{.frames = std::move(*frames)};
}

std::expected<NamedSource, std::string> openPortal(const PortalCamera& portal) {
    if (auto usable = checkPortal(portal); !usable) return Failure(usable.error());
    return openHandedOver(portal);
}

}  // namespace

CameraSource::CameraSource(Source source) : source_(std::move(source)) {}

std::expected<void, std::string> CameraSource::check() const {
    return std::visit(Overloaded{[](const UserCamera&) { return checkUserCamera(); },
                                 [](const CameraDevice& device) { return checkDevices(device); },
                                 [](const PortalCamera& portal) { return checkPortal(portal); },
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
    return std::visit(Overloaded{[](const UserCamera& camera) { return openUserCamera(camera); },
                                 [](const CameraDevice& device) { return openDevice(device); },
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
