#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace tarvex::camera {

/// Adds the options of `tarvex calibrate`: a person holds still at a known distance, and what the camera reads is set
/// right from then on. The result does it, with the arguments that were parsed by then, and returns the exit code.
std::function<int()> addCalibration(CLI::App& command);

}  // namespace tarvex::camera
