#pragma once

#include <chrono>
#include <expected>
#include <functional>
#include <string>

#include "platform/camera/vision/frame.h"

namespace tarvex::camera {

/// An open camera, or what stands in its place. It is closed when this is destroyed. Used by one thread.
class FrameSource {
public:
    virtual ~FrameSource() = default;

    /// Waits at most `patience` for a frame and shows it to `look`, which must not keep it; false when none came.
    /// One sentence when none will come any more.
    virtual std::expected<bool, std::string> next(std::chrono::milliseconds patience,
                                                  const std::function<void(const Frame&)>& look) = 0;
};

}  // namespace tarvex::camera
