#pragma once

#include <array>
#include <cstdint>

namespace tarvex::platform {

/// What one look at a light sensor yields.
///
/// `lux` is the light level, rounded to the nearest integer. The channels are raw numbers of the driver, without scale
/// or offset, each within the range of a 32-bit float: red, green, blue and clear where the sensor has colours,
/// otherwise its whole spectrum and its infrared part. What the sensor lacks is 0.
struct LightReading {
    std::int64_t lux = 0;
    std::array<double, 4> channels = {};

    friend bool operator==(const LightReading&, const LightReading&) = default;
};

}  // namespace tarvex::platform
