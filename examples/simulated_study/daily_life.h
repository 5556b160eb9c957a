#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "habits.h"
#include "noise.h"
#include "open_sky.h"

namespace simulated_study {

/// What a colour sensor reads.
struct Light {
    std::intptr_t lux = 0;
    std::array<double, 4> channels{};  ///< counts of red, green, blue and clear
};

/// Distances from the camera in centimetres.
struct Eyes {
    double left = 0;
    double right = 0;
};

/// The light that a participant's device sees, and where the eyes are. Follows from the seed.
class DailyLife {
public:
    DailyLife(int participant, std::uint64_t seed);

    Light lightAt(double secondsSince1970) const;

    /// Absent while nobody looks at the device.
    std::optional<Eyes> eyesAt(double secondsSince1970) const;

private:
    enum class Place : std::uint8_t { bed, home, way, work, outing };

    Place placeAt(const Moment& moment) const;
    bool isAwake(const Moment& moment) const;
    bool isEvening(const Moment& moment) const;
    bool liesInPocket(Place place, const Moment& moment) const;
    double shareOfDaylight(Place place) const;
    double shareOfLooking(Place place, const Moment& moment) const;
    bool isHeldInHand(Place place, const Moment& moment) const;

    Habits habits_;
    OpenSky openSky_;
    Noise plans_;
    Noise shade_;
    Noise sensor_;
    Noise use_;
    Noise posture_;
    Noise head_;
};

}  // namespace simulated_study
