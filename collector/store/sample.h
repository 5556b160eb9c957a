#pragma once

#include <array>
#include <compare>
#include <string>

namespace tarvex::collector {

// What a host sends. Times are seconds since 1970-01-01 00:00:00 UTC, by the host's clock.

struct AmbientLight {
    double time;
    double lux;
    std::array<double, 4> channels;

    friend auto operator<=>(const AmbientLight&, const AmbientLight&) = default;
};

struct Distance {
    double time;
    double leftEye;  ///< centimetres from the camera, as all distances
    double rightEye;

    friend auto operator<=>(const Distance&, const Distance&) = default;
};

/// A sample of another type, or with other names: what a newer host sends.
struct OtherSample {
    double time;
    std::string type;
    std::string values;  ///< a JSON object, its members in the order of their names

    friend auto operator<=>(const OtherSample&, const OtherSample&) = default;
};

}  // namespace tarvex::collector
