#pragma once

#include <expected>
#include <string>
#include <vector>

#include "platform/camera/named_source.h"
#include "tarvex/camera.h"

namespace tarvex::camera {

/// One sentence when no road leads to a camera, as far as that shows without asking anybody, within 100 ms.
std::expected<void, std::string> checkUserCamera();

/// Opens the user's camera. One sentence when there is none, or it is refused.
std::expected<NamedSource, std::string> openUserCamera(const UserCamera& wanted);

/// Opens a camera of a remote that the host has, to which it has a descriptor. One sentence when there is none.
std::expected<NamedSource, std::string> openHandedOver(const PortalCamera& portal);

/// The names of the cameras that the user has, in the order in which they are taken.
std::expected<std::vector<std::string>, std::string> userCameraNames();

}  // namespace tarvex::camera
