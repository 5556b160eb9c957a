#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tarvex::camera {

/// One picture, looked at while its owner holds it: rows from top to bottom, each pixel red, green, blue.
struct Frame {
    int width = 0;
    int height = 0;
    std::size_t stride = 0;  ///< bytes from one row to the next; at least 3 × width
    std::span<const std::uint8_t> pixels;
};

}  // namespace tarvex::camera
