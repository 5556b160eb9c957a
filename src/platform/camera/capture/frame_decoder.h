#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <expected>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/camera/vision/face_finder.h"

namespace tarvex::camera {

class FramePipeline;

/// A frame as a camera delivers it, which nobody has looked at: what it says of itself may be wrong.
struct CameraFrame {
    struct Plane {
        std::size_t offset;  ///< among the bytes
        int stride;          ///< bytes from row to row
    };

    std::string format;  ///< GStreamer's name of the pixel format, or "JPEG"
    int width = 0;       ///< pixels
    int height = 0;
    std::vector<Plane> planes;  ///< all of them, or the first one, which the others follow
    std::vector<std::uint8_t> bytes;
};

/// Turns a camera's frames, all of one format, into frames for the networks. Reentrant.
class FrameDecoder {
public:
    /// `name` is the camera's, for a person. One sentence when GStreamer lacks something.
    static std::expected<FrameDecoder, std::string> open(const std::string& name);
    FrameDecoder(FrameDecoder&&) noexcept;
    FrameDecoder& operator=(FrameDecoder&&) noexcept;
    ~FrameDecoder();

    /// Shows the decoded frame to `look`, which must not keep it; false when it cannot be decoded within `patience`.
    /// One sentence when no such frame can ever be.
    std::expected<bool, std::string> decode(CameraFrame frame, std::chrono::milliseconds patience,
                                            const std::function<void(const Frame&)>& look);

private:
    explicit FrameDecoder(std::unique_ptr<FramePipeline> pipeline);

    std::unique_ptr<FramePipeline> pipeline_;
};

}  // namespace tarvex::camera
