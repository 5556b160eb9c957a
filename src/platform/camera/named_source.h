#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/camera/capture/frame_source.h"

namespace tarvex::camera {

/// An open source, and the name under which its camera is calibrated, if it is a camera of a known name.
struct NamedSource {
    std::unique_ptr<FrameSource> frames;
    std::optional<std::string> camera = std::nullopt;
};

}  // namespace tarvex::camera
