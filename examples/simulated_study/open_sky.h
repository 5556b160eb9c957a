#pragma once

#include <cstdint>

#include "noise.h"

namespace simulated_study {

/// A moment by the clock on the wall: local time.
struct Moment {
    double seconds = 0;  ///< since 1970-01-01 00:00 UTC
    double hour = 0;     ///< 0 to 24, with its fraction
    int dayOfYear = 0;   ///< 0 is the first of January
    bool isWeekend = false;
};

Moment momentAt(double secondsSince1970);

/// The daylight over a town of the middle latitudes in the north, the same for all participants of a study.
class OpenSky {
public:
    explicit OpenSky(std::uint64_t seed) : noise_(seed, 0) {}

    /// Under the open sky, in lux.
    double daylight(const Moment& moment) const;

private:
    double cloudTransmission(const Moment& moment) const;

    Noise noise_;
};

}  // namespace simulated_study
