#pragma once

#include <spa/pod/pod.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tarvex::camera {

/// Parameters of a stream, built in memory of their own.
class StreamParameters {
public:
    /// The formats that a camera may deliver, the preferred ones first.
    static StreamParameters formats();
    /// What the buffers for the frames must be like.
    static StreamParameters buffers();

    /// Valid as long as this.
    std::vector<const spa_pod*> pods() const;

private:
    alignas(8) std::array<std::uint8_t, 4096> bytes_{};
    std::vector<std::size_t> offsets_;
};

/// What the camera has agreed to.
struct VideoFormat {
    std::string name;  ///< as in `CameraFrame`
    int width = 0;     ///< pixels
    int height = 0;
};

/// Absent when it is none of `StreamParameters::formats`.
std::optional<VideoFormat> videoFormatOf(const spa_pod& parameter);

}  // namespace tarvex::camera
