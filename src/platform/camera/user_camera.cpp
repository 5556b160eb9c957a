#include "platform/camera/user_camera.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "platform/camera/pipewire/facing.h"
#include "platform/camera/pipewire/pipewire_frame_source.h"
#include "platform/camera/pipewire/pipewire_remote.h"
#include "platform/camera/video_device.h"
#include "platform/portal/portal_camera.h"
#include "platform/portal/video_devices.h"

namespace tarvex::camera {
namespace {

using namespace std::chrono_literals;
using Failure = std::unexpected<std::string>;

// Both roads together, less than the tenth of a second that a check may take.
constexpr auto checkPatience = 40ms;
// All roads together, less than the three seconds of a run.
constexpr auto openPatience = 900ms;

/// A camera at the end of a road, not open.
struct FoundCamera {
    std::string name;
    Facing facing;
    std::function<std::expected<NamedSource, std::string>()> open;
};

/// The cameras at the end of a road. One sentence when the user refuses them.
struct Road {
    std::vector<FoundCamera> cameras;
    std::optional<std::string> why = std::nullopt;  ///< the road could not be gone
};
using FoundCameras = std::expected<Road, std::string>;

std::expected<NamedSource, std::string> openNamed(std::shared_ptr<PipeWireRemote> remote,
                                                  const PipeWireCamera& camera) {
    auto frames = openPipeWireCamera(std::move(remote), camera);
    if (!frames) return Failure(frames.error());
    return NamedSource{.frames = std::move(*frames), .camera = camera.name};
}

std::expected<std::vector<PipeWireCamera>, std::string> listOf(
    const std::expected<std::shared_ptr<PipeWireRemote>, std::string>& remote) {
    return remote ? (*remote)->cameras(openPatience) : Failure(remote.error());
}

Road camerasOf(const std::expected<std::shared_ptr<PipeWireRemote>, std::string>& remote) {
    const auto cameras = listOf(remote);
    if (!cameras) return {.cameras = {}, .why = cameras.error()};
    Road road;
    for (const PipeWireCamera& camera : *cameras)
        road.cameras.push_back({camera.name, camera.facing, [remote, camera] { return openNamed(*remote, camera); }});
    return road;
}

FoundCameras portalCameras() {
    const auto opened = platform::openPortalCameras(openPatience);
    if (!opened) return Failure(opened.error());
    const auto& descriptor = *opened;
    return descriptor ? camerasOf(PipeWireRemote::connect(descriptor->number())) : Road();
}

FoundCameras pipeWireCameras() {
    const auto remote = PipeWireRemote::connect();
    // Where it does not run, that is no news.
    return remote ? camerasOf(remote) : Road();
}

FoundCameras deviceCameras() {
    Road road;
    const auto nodes = platform::videoDeviceNodes("/dev");
    for (const auto& node : nodes) {
        const auto name = nameOfDevice(node);
        if (name) road.cameras.push_back({*name, facingOfName(*name), [node] { return openDevice({.node = node}); }});
    }
    if (nodes.empty() || !road.cameras.empty()) return road;
    if (auto usable = checkDevices({}); !usable) road.why = usable.error();
    return road;
}

constexpr std::array<FoundCameras (*)(), 3> roads{portalCameras, pipeWireCameras, deviceCameras};

}  // namespace

std::expected<void, std::string> checkUserCamera() {
    if (platform::mayPortalHaveCamera(checkPatience)) return {};
    if (const auto remote = PipeWireRemote::connect()) {
        const auto cameras = (*remote)->cameras(checkPatience);
        if (!cameras || !cameras->empty()) return {};
    }
    return checkDevices({});
}

std::expected<NamedSource, std::string> openUserCamera(const UserCamera& wanted) {
    std::optional<std::string> why;
    for (const auto& road : roads) {
        auto found = road();
        if (!found) return Failure(found.error());
        auto& [cameras, obstacle] = *found;
        if (wanted.name) std::erase_if(cameras, [&](const FoundCamera& camera) { return camera.name != *wanted.name; });
        const auto best = std::ranges::min_element(cameras, {}, &FoundCamera::facing);
        if (best != cameras.end()) return best->open();
        if (!why) why = std::move(obstacle);
    }
    if (why) return Failure(*std::move(why));
    if (wanted.name) return Failure("there is no camera \"" + *wanted.name + "\" (see tarvex calibrate --list)");
    return Failure("this machine has no camera");
}

std::expected<NamedSource, std::string> openHandedOver(const PortalCamera& portal) {
    const auto remote = PipeWireRemote::connect(portal.fileDescriptor);
    const auto cameras = listOf(remote);
    if (!cameras) return Failure(cameras.error());
    const auto isMeant = [&](const PipeWireCamera& camera) { return camera.node == portal.node; };
    const auto best = portal.node ? std::ranges::find_if(*cameras, isMeant)
                                  : std::ranges::min_element(*cameras, {}, &PipeWireCamera::facing);
    if (best == cameras->end()) return Failure("the portal's remote has no such camera");
    return openNamed(*remote, *best);
}

std::expected<std::vector<std::string>, std::string> userCameraNames() {
    std::vector<std::string> names;
    for (const auto& road : roads) {
        auto found = road();
        if (!found) return Failure(found.error());
        for (const Facing facing : {Facing::user, Facing::unknown, Facing::away}) {
            for (const FoundCamera& camera : found->cameras) {
                const bool isKnown = std::ranges::find(names, camera.name) != names.end();
                if (camera.facing == facing && !isKnown) names.push_back(camera.name);
            }
        }
    }
    return names;
}

}  // namespace tarvex::camera
