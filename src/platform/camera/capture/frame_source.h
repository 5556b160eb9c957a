#pragma once

#include <chrono>
#include <cstdint>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <variant>

#include "platform/camera/vision/face_finder.h"

namespace tarvex::camera {

/// An open camera, or a file in its place; destroying it closes it. Reentrant.
class FrameSource {
public:
    virtual ~FrameSource() = default;

    /// Waits at most `patience` for a frame and shows it to `look`, which must not keep it; false when none came.
    /// One sentence when none will come any more.
    virtual std::expected<bool, std::string> next(std::chrono::milliseconds patience,
                                                  const std::function<void(const Frame&)>& look) = 0;
};

/// The source of one run that GStreamer knows itself: a device node, a video or a picture.
struct Video {
    std::filesystem::path path;
};
struct Picture {
    std::filesystem::path path;
};
using OpenedSource = std::variant<std::filesystem::path, Video, Picture>;

/// Opens the source, through GStreamer; the first frame may take a while. One sentence when it cannot be opened.
std::expected<std::unique_ptr<FrameSource>, std::string> openFrameSource(const OpenedSource& source);

}  // namespace tarvex::camera
