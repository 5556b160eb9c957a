#pragma once

#include <expected>
#include <memory>
#include <optional>
#include <string>

#include "platform/camera/capture/frame_source.h"
#include "tarvex/camera.h"

namespace tarvex::camera {

/// An open source, and the name under which its camera is calibrated; absent where that is not known, or no camera is.
struct NamedSource {
    std::unique_ptr<FrameSource> frames;
    std::optional<std::string> camera = std::nullopt;
};

/// What the host chose, opened run by run. Used by one thread at a time.
class CameraSource {
public:
    explicit CameraSource(Source source);

    /// Why no run can see anything, as far as it shows without opening a camera.
    std::expected<void, std::string> check() const;

    std::expected<NamedSource, std::string> open();

private:
    Source source_;
    std::size_t nextPicture_ = 0;
};

}  // namespace tarvex::camera
