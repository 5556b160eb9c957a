#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <vector>

#include "platform/camera/vision/face_finder.h"

namespace tarvex::camera {

/// A point of a frame, in pixels: the first pixel covers 0 to 1.
struct ImagePoint {
    float x = 0;
    float y = 0;
};

/// A square of a frame, in pixels; it may be turned and may reach beyond the frame.
struct ImageRegion {
    ImagePoint centre;
    float side = 0;
    float angle = 0;  ///< radians, clockwise as one looks at the picture

    /// From the square's own coordinates, 0 to 1 along its sides, to the frame's.
    ImagePoint toFrame(ImagePoint inside) const;
};

/// The frame at its own size and at halves of it, each made when it is first needed. Looks at the frame; what it made
/// goes with it.
class ImagePyramid {
public:
    explicit ImagePyramid(const Frame& frame) : levels_{frame} {}

    const Frame& frame() const { return levels_.front(); }

    /// A frame that was halved so many times.
    struct Level {
        const Frame& frame;  ///< as long-lived as the pyramid
        int halvings;
    };

    /// The frame halved so many times, or as often as its size allows.
    Level halved(int halvings);

private:
    // Deques: references to levels stay valid when levels are added.
    std::deque<Frame> levels_;
    std::deque<std::vector<std::uint8_t>> pixels_;
};

/// The range of a network's input: value × scale + offset for a channel of 0 to 255.
struct ChannelRange {
    float scale = 1;
    float offset = 0;
};

/// Fills `numbers` with the region at size × size pixels, red, green and blue each; black where it reaches beyond the
/// frame.
void sampleRegion(ImagePyramid& pyramid, const ImageRegion& region, std::size_t size, ChannelRange range,
                  std::span<float> numbers);

}  // namespace tarvex::camera
