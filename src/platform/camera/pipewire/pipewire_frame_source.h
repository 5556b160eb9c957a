#pragma once

#include <expected>
#include <memory>
#include <string>

#include "platform/camera/capture/frame_source.h"
#include "platform/camera/pipewire/pipewire_remote.h"

namespace tarvex::camera {

/// Opens the camera, which the remote has named; the first frame may take a while. One sentence when it cannot be.
std::expected<std::unique_ptr<FrameSource>, std::string> openPipeWireCamera(std::shared_ptr<PipeWireRemote> remote,
                                                                            const PipeWireCamera& camera);

}  // namespace tarvex::camera
