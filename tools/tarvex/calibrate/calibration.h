#pragma once

#include <chrono>
#include <expected>
#include <functional>
#include <string>
#include <vector>

#include "platform/camera/capture/frame_source.h"

namespace tarvex::camera {

/// Readings of an uncalibrated camera for a face that holds still.
struct Readings {
    std::vector<double> centimetres;  ///< the mean of both eyes' distances, a frame
    int frames = 0;
    int width = 0;
    int height = 0;
};

/// Looks for that long; `progress` is told of every frame. One sentence when the source fails or changes its size.
std::expected<Readings, std::string> read(FrameSource& source, const FaceFinder& finder, std::chrono::seconds duration,
                                          const std::function<void(const Readings&)>& progress);

/// The factor that makes the readings' median the true distance; one sentence when they are too few or too far apart to
/// say.
std::expected<double, std::string> factorOf(const Readings& readings, double trueCentimetres);

}  // namespace tarvex::camera
