#pragma once

#include <chrono>
#include <expected>
#include <optional>
#include <string>

#include "platform/shared/file_descriptor.h"

namespace tarvex::platform {

// The cameras that the desktop portal has for this host. The user is asked on the consent screen: nothing here opens a
// dialog.

/// True when the portal says within `limit` that it has a camera. One that does not run is not started: then true in a
/// sandbox, where nothing else has a camera.
bool mayPortalHaveCamera(std::chrono::milliseconds limit);

/// A connection to PipeWire over which the portal shows this host the cameras and nothing else. Starts the portal where
/// it does not run. Absent where there is no portal within `limit`, or it has no camera; one sentence when it does not
/// let the host use one.
std::expected<std::optional<FileDescriptor>, std::string> openPortalCameras(std::chrono::milliseconds limit);

}  // namespace tarvex::platform
