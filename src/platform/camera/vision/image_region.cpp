#include "platform/camera/vision/image_region.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

namespace tarvex::camera {
namespace {

constexpr std::size_t channels = 3;

std::vector<std::uint8_t> halfOf(const Frame& frame) {
    const auto width = static_cast<std::size_t>(frame.width / 2);
    const auto height = static_cast<std::size_t>(frame.height / 2);
    std::vector<std::uint8_t> pixels(width * height * channels);
    // Twice as many means as are wanted, side by side: compilers make whole registers of that, and of no other order.
    std::vector<std::uint8_t> means(2 * width * channels);
    std::uint8_t* out = pixels.data();
    for (std::size_t y = 0; y < height; ++y) {
        const std::uint8_t* upper = frame.pixels.data() + 2 * y * frame.stride;
        const std::uint8_t* lower = upper + frame.stride;
        const std::size_t count = means.size() - channels;
        std::uint8_t* mean = means.data();
        for (std::size_t place = 0; place < count; ++place) {
            const std::size_t right = place + channels;
            mean[place] =
                static_cast<std::uint8_t>((upper[place] + upper[right] + lower[place] + lower[right] + 2) / 4);
        }
        for (std::size_t x = 0; x < width; ++x, mean += 2 * channels, out += channels)
            std::memcpy(out, mean, channels);
    }
    return pixels;
}

// A pixel is worked on in one register. Compilers for every processor know these types; what they make of an array of
// three is several times slower.
using Bytes = std::uint8_t __attribute__((vector_size(16)));
using Shorts = std::uint16_t __attribute__((vector_size(16)));
using Integers = std::int32_t __attribute__((vector_size(16)));
/// Red, green, blue, and a fourth that means nothing.
using Colour = float __attribute__((vector_size(16)));

/// The colour of a pixel that is followed by at least one more byte.
Colour colourAt(const std::uint8_t* pixel) {
    static_assert(std::endian::native == std::endian::little);
    std::int32_t packed = 0;
    std::memcpy(&packed, pixel, sizeof packed);
    constexpr Bytes zeros{};
    const auto bytes = Bytes(Integers{packed});
    const auto shorts =
        Shorts(__builtin_shufflevector(bytes, zeros, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
    const auto integers = Integers(__builtin_shufflevector(shorts, Shorts(zeros), 0, 8, 1, 9, 2, 10, 3, 11));
    return __builtin_convertvector(integers, Colour);
}

Colour mix(Colour from, Colour to, float share) {
    return from + (to - from) * share;
}

/// A place along one side of a frame in 1/65536 of a pixel: its pixel and its place inside that are had by a shift.
using Fixed = std::int64_t;
constexpr int fractionBits = 16;
constexpr auto onePixel = Fixed(1) << fractionBits;

Fixed fixed(float pixels) {
    return std::lround(pixels * static_cast<float>(onePixel));
}

float fraction(Fixed place) {
    return static_cast<float>(place & (onePixel - 1)) / static_cast<float>(onePixel);
}

/// The frame's colour between its four pixels around a place, measured from the first one's centre.
class Bilinear {
public:
    explicit Bilinear(const Frame& frame) : frame_(frame) {}

    Colour at(Fixed x, Fixed y) const {
        const std::ptrdiff_t column = x >> fractionBits;
        const std::ptrdiff_t row = y >> fractionBits;
        const float right = fraction(x);
        const float low = fraction(y);
        if (column >= 0 && row >= 0 && column + 2 < frame_.width && row + 1 < frame_.height) {
            const std::uint8_t* upper = pixel(column, row);
            const std::uint8_t* lower = upper + frame_.stride;
            return mix(mix(colourAt(upper), colourAt(upper + channels), right),
                       mix(colourAt(lower), colourAt(lower + channels), right), low);
        }
        return mix(mix(colourNear(column, row), colourNear(column + 1, row), right),
                   mix(colourNear(column, row + 1), colourNear(column + 1, row + 1), right), low);
    }

private:
    const std::uint8_t* pixel(std::ptrdiff_t column, std::ptrdiff_t row) const {
        return frame_.pixels.data() + static_cast<std::size_t>(row) * frame_.stride +
               static_cast<std::size_t>(column) * channels;
    }

    /// Of a pixel that may lie beside the frame: there it is black.
    Colour colourNear(std::ptrdiff_t column, std::ptrdiff_t row) const {
        if (column < 0 || row < 0 || column >= frame_.width || row >= frame_.height) return Colour{};
        const std::uint8_t* at = pixel(column, row);
        return Colour{static_cast<float>(at[0]), static_cast<float>(at[1]), static_cast<float>(at[2])};
    }

    const Frame& frame_;
};

}  // namespace

ImagePoint ImageRegion::toFrame(ImagePoint inside) const {
    const float x = (inside.x - 0.5F) * side;
    const float y = (inside.y - 0.5F) * side;
    return {.x = centre.x + x * std::cos(angle) - y * std::sin(angle),
            .y = centre.y + x * std::sin(angle) + y * std::cos(angle)};
}

ImagePyramid::Level ImagePyramid::halved(int halvings) {
    while (static_cast<int>(levels_.size()) <= halvings) {
        const Frame& last = levels_.back();
        if (last.width < 2 || last.height < 2) break;
        pixels_.push_back(halfOf(last));
        const int width = last.width / 2;
        levels_.push_back({.width = width,
                           .height = last.height / 2,
                           .stride = static_cast<std::size_t>(width) * channels,
                           .pixels = pixels_.back()});
    }
    const auto level = std::min(static_cast<std::size_t>(halvings), levels_.size() - 1);
    return {.frame = levels_[level], .halvings = static_cast<int>(level)};
}

void sampleRegion(ImagePyramid& pyramid, const ImageRegion& region, std::size_t size, ChannelRange range,
                  std::span<float> numbers) {
    // Between two of the network's pixels lie at most this many of the frame's: more would be left out unseen.
    constexpr float widestStep = 1.5F;
    const auto count = static_cast<float>(size);
    const float step = region.side / count;
    const int wanted = step > widestStep ? static_cast<int>(std::ceil(std::log2(step / widestStep))) : 0;
    const auto [frame, halvings] = pyramid.halved(wanted);
    const float halving = 1.0F / static_cast<float>(1 << halvings);

    const ImagePoint first = region.toFrame({.x = 0.5F / count, .y = 0.5F / count});
    const Fixed along = fixed(step * std::cos(region.angle) * halving);
    const Fixed across = fixed(step * std::sin(region.angle) * halving);
    const Bilinear picture(frame);
    float* out = numbers.data();
    for (std::size_t row = 0; row < size; ++row) {
        const auto down = static_cast<Fixed>(row);
        Fixed x = fixed(first.x * halving - 0.5F) - down * across;
        Fixed y = fixed(first.y * halving - 0.5F) + down * along;
        for (std::size_t column = 0; column < size; ++column, out += channels) {
            const Colour colour = picture.at(x, y) * range.scale + range.offset;
            for (std::size_t c = 0; c < channels; ++c)
                out[c] = colour[c];
            x += along;
            y += across;
        }
    }
}

}  // namespace tarvex::camera
