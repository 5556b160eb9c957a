// Calibrates a camera: a person holds still at a known distance, and what the camera reads is set right from then on.

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include "calibrate/calibration.h"
#include "platform/camera/camera_options.h"
#include "platform/camera/camera_source.h"
#include "platform/camera/user_camera.h"

namespace tarvex::camera {
namespace {

struct Arguments {
    double centimetres = 0;
    int seconds = 5;
    std::optional<std::string> camera;
    std::optional<std::filesystem::path> device;
    bool list = false;
};

int list() {
    const auto names = userCameraNames();
    if (!names) {
        std::fprintf(stderr, "No camera: %s\n", names.error().c_str());
        return 1;
    }
    for (const std::string& name : *names)
        std::printf("%s\n", name.c_str());
    if (names->empty()) std::fprintf(stderr, "No camera is there.\n");
    return names->empty() ? 1 : 0;
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
    CameraSource source(arguments.device ? Source(CameraDevice{.node = arguments.device})
                                         : Source(UserCamera{.name = arguments.camera}));
    if (const auto usable = source.check(); !usable) return fail(usable.error());
    const auto opened = source.open();
    if (!opened) return fail(opened.error());
    const std::string camera = opened->camera.value_or("");  // a camera always has a name, an empty one at worst

    std::printf("%s: look at it from %.1f cm for %d s\n", camera.c_str(), arguments.centimetres, arguments.seconds);
    const auto readings = read(*opened->frames, *finder, std::chrono::seconds(arguments.seconds), show);
    std::printf("\n");
    if (!readings) return fail(readings.error());
    const auto factor = factorOf(*readings, arguments.centimetres);
    if (!factor) return fail(factor.error());
    const platform::CalibrationFile file;
    if (const auto stored = file.store(camera, readings->width, readings->height, *factor); !stored)
        return fail(stored.error());
    std::printf("Factor %.4f for frames of %d×%d, stored in %s\n", *factor, readings->width, readings->height,
                file.path().c_str());
    return 0;
}

}  // namespace
}  // namespace tarvex::camera

int main(int argc, char** argv) {
    tarvex::camera::Arguments arguments;
    CLI::App app(
        "Calibrates a camera: look at it from a known distance and hold still.\n"
        "The factor is stored for this user, for the camera and the size of its frames.");
    app.add_flag("--list", arguments.list,
                 "List the cameras by name, the one that is taken first, and do nothing else");
    app.add_option("--distance-cm", arguments.centimetres,
                   "Distance of the eyes from the camera, by a ruler, 10 to 200 (required, but for --list)")
        ->option_text("NUMBER");
    app.add_option("--seconds", arguments.seconds, "Duration of the measurement, 1 to 60 (5)")
        ->option_text("NUMBER")
        ->check(CLI::Range(1, 60));
    auto* name = app.add_option("--camera", arguments.camera, "Name of the camera (the one that faces the user)");
    name->option_text("NAME");
    app.add_option("--device", arguments.device, "Device node of the camera, past the portal and PipeWire")
        ->option_text("NODE")
        ->excludes(name);
    try {
        app.parse(argc, argv);
        // Not by a range check, which takes "nan".
        const bool inRange = arguments.centimetres >= 10 && arguments.centimetres <= 200;
        if (!inRange && !arguments.list)
            throw CLI::ValidationError("--distance-cm", "the number must be from 10 to 200");
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    return arguments.list ? tarvex::camera::list() : tarvex::camera::calibrate(arguments);
}
