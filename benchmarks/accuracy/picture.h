#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/camera/vision/face_finder.h"

namespace tarvex::benchmarks {

/// A picture in memory: rows from top to bottom, red, green, blue.
struct Picture {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;

    Picture() = default;
    Picture(int columns, int rows, std::uint8_t shade);

    static std::expected<Picture, std::string> load(const std::filesystem::path& path);

    camera::Frame frame() const;
    /// A part of the picture, looked at; it lies within.
    camera::Frame part(int left, int top, int size) const;
};

/// Draws `source` into `target` as a print that covers a square around (centreX, centreY): each pixel is the mean of
/// what it covers, as a camera has it.
void drawPrint(Picture& target, const camera::Frame& source, double centreX, double centreY, double side);

}  // namespace tarvex::benchmarks
