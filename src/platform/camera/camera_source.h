#pragma once

#include <expected>
#include <string>

#include "platform/camera/named_source.h"
#include "tarvex/camera.h"

namespace tarvex::camera {

/// The source that the host chose, opened once a run. Reentrant.
class CameraSource {
public:
    explicit CameraSource(Source source);

    /// One sentence when no run can see anything, as far as that shows without opening a camera.
    std::expected<void, std::string> check() const;

    std::expected<NamedSource, std::string> open();

private:
    Source source_;
    std::size_t nextPicture_ = 0;
};

}  // namespace tarvex::camera
