#include <CLI/CLI.hpp>
#include <cstdio>

#include "calibrate/command.h"

namespace tarvex::camera {

std::function<int()> addCalibration(CLI::App& command) {
    command.allow_extras();
    return [] {
        std::fputs("Not calibrated: this program was built without the camera (TARVEX_BUILD_CAMERA).\n", stderr);
        return 1;
    };
}

}  // namespace tarvex::camera
