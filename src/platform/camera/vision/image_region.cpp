#include "platform/camera/vision/image_region.h"

#include <algorithm>
#include <cmath>

namespace tarvex::camera {
namespace {

constexpr std::size_t channels = 3;

std::vector<std::uint8_t> halfOf(const Frame& frame) {
    const auto width = static_cast<std::size_t>(frame.width / 2);
    const auto height = static_cast<std::size_t>(frame.height / 2);
    std::vector<std::uint8_t> pixels(width * height * channels);
    std::uint8_t* out = pixels.data();
    for (std::size_t y = 0; y < height; ++y) {
        const std::uint8_t* upper = frame.pixels.data() + 2 * y * frame.stride;
        const std::uint8_t* lower = upper + frame.stride;
        for (std::size_t x = 0; x < width; ++x, upper += 2 * channels, lower += 2 * channels) {
            for (std::size_t c = 0; c < channels; ++c)
                *out++ = static_cast<std::uint8_t>(
                    (upper[c] + upper[c + channels] + lower[c] + lower[c + channels] + 2) / 4);
        }
    }
    return pixels;
}

/// The frame's colour between its four pixels around a place, given in pixels from the first one's centre.
class Bilinear {
public:
    Bilinear(const Frame& frame, Beyond beyond) : frame_(frame), beyond_(beyond) {}

    void at(float x, float y, float* colour) const {
        const float left = std::floor(x);
        const float top = std::floor(y);
        const float right = x - left;
        const float low = y - top;
        const auto column = static_cast<std::ptrdiff_t>(left);
        const auto row = static_cast<std::ptrdiff_t>(top);
        if (column >= 0 && row >= 0 && column + 1 < frame_.width && row + 1 < frame_.height) {
            const std::uint8_t* upper = pixel(column, row);
            const std::uint8_t* lower = upper + frame_.stride;
            for (std::size_t c = 0; c < channels; ++c) {
                const auto above =
                    static_cast<float>(upper[c]) * (1 - right) + static_cast<float>(upper[c + channels]) * right;
                const auto below =
                    static_cast<float>(lower[c]) * (1 - right) + static_cast<float>(lower[c + channels]) * right;
                colour[c] = above * (1 - low) + below * low;
            }
            return;
        }
        std::fill_n(colour, channels, 0.0F);
        add(column, row, (1 - right) * (1 - low), colour);
        add(column + 1, row, right * (1 - low), colour);
        add(column, row + 1, (1 - right) * low, colour);
        add(column + 1, row + 1, right * low, colour);
    }

private:
    const std::uint8_t* pixel(std::ptrdiff_t column, std::ptrdiff_t row) const {
        return frame_.pixels.data() + static_cast<std::size_t>(row) * frame_.stride +
               static_cast<std::size_t>(column) * channels;
    }

    void add(std::ptrdiff_t column, std::ptrdiff_t row, float weight, float* colour) const {
        if (beyond_ == Beyond::nearestPixel) {
            column = std::clamp<std::ptrdiff_t>(column, 0, frame_.width - 1);
            row = std::clamp<std::ptrdiff_t>(row, 0, frame_.height - 1);
        }
        if (column < 0 || row < 0 || column >= frame_.width || row >= frame_.height) return;
        for (std::size_t c = 0; c < channels; ++c)
            colour[c] += weight * static_cast<float>(pixel(column, row)[c]);
    }

    const Frame& frame_;
    const Beyond beyond_;
};

}  // namespace

ImagePoint ImageRegion::toFrame(ImagePoint inside) const {
    const float x = (inside.x - 0.5F) * side;
    const float y = (inside.y - 0.5F) * side;
    return {.x = centre.x + x * std::cos(angle) - y * std::sin(angle),
            .y = centre.y + x * std::sin(angle) + y * std::cos(angle)};
}

const Frame& ImagePyramid::halved(int level) {
    while (static_cast<int>(levels_.size()) <= level) {
        const Frame& last = levels_.back();
        if (last.width < 2 || last.height < 2) break;
        pixels_.push_back(halfOf(last));
        const int width = last.width / 2;
        levels_.push_back({.width = width,
                           .height = last.height / 2,
                           .stride = static_cast<std::size_t>(width) * channels,
                           .pixels = pixels_.back()});
    }
    return levels_[std::min(static_cast<std::size_t>(level), levels_.size() - 1)];
}

void sampleRegion(ImagePyramid& pyramid, const ImageRegion& region, std::size_t size, Beyond beyond, ChannelRange range,
                  std::span<float> numbers) {
    // Between two of the network's pixels lie at most this many of the frame's: more would be left out unseen.
    constexpr float widestStep = 1.5F;
    const auto count = static_cast<float>(size);
    const float step = region.side / count;
    const int level = step > widestStep ? static_cast<int>(std::ceil(std::log2(step / widestStep))) : 0;
    const Frame& frame = pyramid.halved(level);
    const float shrunk = static_cast<float>(frame.width) / static_cast<float>(pyramid.frame().width);
    const float halving = 1.0F / static_cast<float>(1 << std::lround(-std::log2(shrunk)));

    const ImagePoint first = region.toFrame({.x = 0.5F / count, .y = 0.5F / count});
    const float along = step * std::cos(region.angle) * halving;
    const float across = step * std::sin(region.angle) * halving;
    const Bilinear picture(frame, beyond);
    float* out = numbers.data();
    for (std::size_t row = 0; row < size; ++row) {
        const auto down = static_cast<float>(row);
        const float startX = first.x * halving - 0.5F - down * across;
        const float startY = first.y * halving - 0.5F + down * along;
        for (std::size_t column = 0; column < size; ++column, out += channels) {
            const auto right = static_cast<float>(column);
            picture.at(startX + right * along, startY + right * across, out);
            for (std::size_t c = 0; c < channels; ++c)
                out[c] = out[c] * range.scale + range.offset;
        }
    }
}

}  // namespace tarvex::camera
