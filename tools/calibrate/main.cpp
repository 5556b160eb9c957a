// Calibrates a camera: a person holds still at a known distance, and what the camera reads is set right from then on.

#include <charconv>
#include <chrono>
#include <cstdio>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "calibrate/calibration.h"
#include "platform/camera/calibrated_finder.h"
#include "platform/camera/calibration_file.h"
#include "platform/camera/camera_face_tracking.h"
#include "platform/camera/camera_source.h"
#include "platform/camera/vision/face_locator.h"

namespace tarvex::camera {
namespace {

constexpr const char* usage =
    "usage: tarvex-calibrate --distance-cm NUMBER [--seconds N] [--device NODE]\n"
    "  --distance-cm NUMBER  how far the eyes are from the camera, by a ruler (10 to 200)\n"
    "  --seconds N           how long to measure (5)\n"
    "  --device NODE         the camera (the first one)\n"
    "Look at the camera from that distance and hold still. The factor is stored for this user,\n"
    "for the camera and the size of its frames.\n";

struct Arguments {
    double centimetres = 0;
    int seconds = 5;
    CameraDevice device;
};

template <typename Number>
bool read(std::string_view text, Number least, Number most, Number& number) {
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    return failure == std::errc() && end == text.data() + text.size() && number >= least && number <= most;
}

std::optional<Arguments> parse(std::span<char*> words) {
    Arguments arguments;
    if (words.size() % 2 != 1) return std::nullopt;
    for (std::size_t place = 1; place < words.size(); place += 2) {
        const std::string_view name = words[place];
        const std::string_view value = words[place + 1];
        if (name == "--device") {
            arguments.device.node = value;
        } else if (name == "--distance-cm") {
            if (!read(value, 10.0, 200.0, arguments.centimetres)) return std::nullopt;
        } else if (name != "--seconds" || !read(value, 1, 60, arguments.seconds)) {
            return std::nullopt;
        }
    }
    return arguments.centimetres > 0 ? std::optional(arguments) : std::nullopt;
}

int fail(const std::string& why) {
    std::fprintf(stderr, "Not calibrated: %s\n", why.c_str());
    return 1;
}

void show(const Readings& readings) {
    if (readings.centimetres.empty()) {
        std::printf("\r  no face yet in %d frames", readings.frames);
    } else {
        std::printf("\r  %4zu readings, the last %6.1f cm", readings.centimetres.size(), readings.centimetres.back());
    }
    std::fflush(stdout);
}

int calibrate(const Arguments& arguments) {
    const auto finder = loadFaceFinder(modelDirectoryOf({}), geometryOf({}));
    if (!finder) return fail(finder.error());
    CameraSource source(arguments.device);
    if (const auto usable = source.check(); !usable) return fail(usable.error());
    const auto opened = source.open();
    if (!opened) return fail(opened.error());
    const std::string camera = opened->camera.value_or("");  // a device always has a name, an empty one at worst

    std::printf("%s: look at it from %.1f cm for %d s\n", camera.c_str(), arguments.centimetres, arguments.seconds);
    const auto readings = read(*opened->frames, *finder, std::chrono::seconds(arguments.seconds), show);
    std::printf("\n");
    if (!readings) return fail(readings.error());
    const auto factor = factorOf(*readings, arguments.centimetres);
    if (!factor) return fail(factor.error());
    const CalibrationFile file;
    if (const auto stored = file.store(camera, readings->width, readings->height, *factor); !stored)
        return fail(stored.error());
    std::printf("Factor %.4f for frames of %d×%d, stored in %s\n", *factor, readings->width, readings->height,
                file.path().c_str());
    return 0;
}

}  // namespace
}  // namespace tarvex::camera

int main(int argc, char** argv) {
    const auto arguments = tarvex::camera::parse({argv, static_cast<std::size_t>(argc)});
    if (!arguments) {
        std::fputs(tarvex::camera::usage, stderr);
        return 2;
    }
    return tarvex::camera::calibrate(*arguments);
}
