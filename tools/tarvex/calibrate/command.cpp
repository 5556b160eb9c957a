#include "calibrate/command.h"

#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "calibrate/calibration.h"
#include "counted.h"
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
        std::printf("\r  no face yet in %s", tool::counted(readings.frames, "frame").c_str());
    } else {
        std::printf("\r  %4zu reading%s, the last %6.1f cm", readings.centimetres.size(),
                    readings.centimetres.size() == 1 ? "" : "s", readings.centimetres.back());
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

void addOptions(CLI::App& command, Arguments& arguments) {
    command.add_flag("--list", arguments.list,
                     "List the cameras by name, the one that is taken first, and do nothing else");
    command
        .add_option("--distance-cm", arguments.centimetres,
                    "Distance of the eyes from the camera, by a ruler, 10 to 200 (required, but for --list)")
        ->option_text("NUMBER");
    command.add_option("--seconds", arguments.seconds, "Duration of the measurement, 1 to 60 (5)")
        ->option_text("NUMBER")
        ->check(CLI::Range(1, 60));
    auto* name = command.add_option("--camera", arguments.camera, "Name of the camera (the one that faces the user)");
    name->option_text("NAME");
    command.add_option("--device", arguments.device, "Device node of the camera, past the portal and PipeWire")
        ->option_text("NODE")
        ->excludes(name);
}

}  // namespace

std::function<int()> addCalibration(CLI::App& command) {
    const auto arguments = std::make_shared<Arguments>();
    addOptions(command, *arguments);
    command.parse_complete_callback([arguments] {
        // Not by a range check, which takes "nan".
        const bool inRange = arguments->centimetres >= 10 && arguments->centimetres <= 200;
        if (!inRange && !arguments->list)
            throw CLI::ValidationError("--distance-cm", "the number must be from 10 to 200");
    });
    return [arguments] { return arguments->list ? list() : calibrate(*arguments); };
}

}  // namespace tarvex::camera
