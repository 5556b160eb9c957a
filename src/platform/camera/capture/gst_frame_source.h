#pragma once

#include <expected>
#include <memory>
#include <string>

#include "platform/camera/capture/frame_source.h"
#include "tarvex/camera.h"

namespace tarvex::camera {

/// What is opened for one run: a device node, a node of a PipeWire remote, a video or a picture.
struct PipeWireNode {
    int remote;  ///< its file descriptor
    std::uint32_t node;
};
struct Picture {
    std::filesystem::path path;
};
using OpenedSource = std::variant<std::filesystem::path, PipeWireNode, VideoFile, Picture>;

/// Opens the source, through GStreamer; the first frame may take a while. One sentence when it cannot be opened.
std::expected<std::unique_ptr<FrameSource>, std::string> openFrameSource(const OpenedSource& source);

}  // namespace tarvex::camera
