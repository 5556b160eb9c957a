#include "accuracy/picture.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <algorithm>
#include <cmath>
#include <memory>

namespace tarvex::benchmarks {
namespace {

constexpr std::size_t channels = 3;

struct Unref {
    void operator()(GdkPixbuf* pixbuf) const { g_object_unref(pixbuf); }
};
using Pixbuf = std::unique_ptr<GdkPixbuf, Unref>;

Pixbuf pixbufOf(const camera::Frame& frame) {
    return Pixbuf(gdk_pixbuf_new_from_data(frame.pixels.data(), GDK_COLORSPACE_RGB, FALSE, 8, frame.width, frame.height,
                                           static_cast<int>(frame.stride), nullptr, nullptr));
}

}  // namespace

Picture::Picture(int columns, int rows, std::uint8_t shade)
    : width(columns), height(rows), pixels(static_cast<std::size_t>(columns * rows) * channels, shade) {}

std::expected<Picture, std::string> Picture::load(const std::filesystem::path& path) {
    GError* error = nullptr;
    const Pixbuf pixbuf(gdk_pixbuf_new_from_file(path.c_str(), &error));
    if (!pixbuf) {
        std::string reason = error->message;
        g_error_free(error);
        return std::unexpected(path.string() + " cannot be read: " + reason);
    }
    Picture picture(gdk_pixbuf_get_width(pixbuf.get()), gdk_pixbuf_get_height(pixbuf.get()), 0);
    const auto stride = static_cast<std::size_t>(gdk_pixbuf_get_rowstride(pixbuf.get()));
    const auto step = static_cast<std::size_t>(gdk_pixbuf_get_n_channels(pixbuf.get()));
    const std::uint8_t* from = gdk_pixbuf_read_pixels(pixbuf.get());
    auto to = picture.pixels.begin();
    for (std::size_t row = 0; row < static_cast<std::size_t>(picture.height); ++row) {
        for (std::size_t column = 0; column < static_cast<std::size_t>(picture.width); ++column)
            to = std::copy_n(from + row * stride + column * step, channels, to);
    }
    return picture;
}

camera::Frame Picture::frame() const {
    return {.width = width, .height = height, .stride = static_cast<std::size_t>(width) * channels, .pixels = pixels};
}

camera::Frame Picture::part(int left, int top, int size) const {
    const camera::Frame whole = frame();
    const auto start = static_cast<std::size_t>(top) * whole.stride + static_cast<std::size_t>(left) * channels;
    return {.width = size, .height = size, .stride = whole.stride, .pixels = whole.pixels.subspan(start)};
}

void drawPrint(Picture& target, const camera::Frame& source, double centreX, double centreY, double side) {
    const Pixbuf from = pixbufOf(source);
    const Pixbuf to = pixbufOf(target.frame());
    const double left = centreX - side / 2;
    const double top = centreY - side / 2;
    const int firstColumn = std::max(0, static_cast<int>(std::ceil(left)));
    const int firstRow = std::max(0, static_cast<int>(std::ceil(top)));
    const int endColumn = std::min(target.width, static_cast<int>(std::floor(left + side)));
    const int endRow = std::min(target.height, static_cast<int>(std::floor(top + side)));
    gdk_pixbuf_scale(from.get(), to.get(), firstColumn, firstRow, endColumn - firstColumn, endRow - firstRow, left, top,
                     side / source.width, side / source.height, GDK_INTERP_BILINEAR);
}

}  // namespace tarvex::benchmarks
