#include "daily_life.h"

#include <algorithm>
#include <cmath>

namespace simulated_study {

namespace {

constexpr double minute = 60;
constexpr double hour = 60 * minute;

/// Counts of red, green, blue and clear for each lux.
using Spectrum = std::array<double, 4>;
constexpr Spectrum daylightSpectrum{1.05, 1.30, 1.20, 3.55};
constexpr Spectrum lampSpectrum{2.10, 1.40, 0.60, 4.10};
constexpr Spectrum ceilingSpectrum{1.30, 1.35, 0.90, 3.55};
constexpr Spectrum screenSpectrum{1.00, 1.20, 1.70, 3.90};

class Mixture {
public:
    void add(double lux, const Spectrum& spectrum) {
        lux_ += lux;
        for (std::size_t channel = 0; channel < spectrum.size(); ++channel)
            counts_[channel] += lux * spectrum[channel];
    }

    Light read(double factor) const {
        Light light{.lux = std::lround(lux_ * factor)};
        std::ranges::transform(counts_, light.channels.begin(),
                               [factor](double counts) { return std::round(counts * factor); });
        return light;
    }

private:
    double lux_ = 0;
    Spectrum counts_{};
};

/// How far a lamp is turned on where the daylight alone gives this many lux.
double lampIsOn(double daylight) {
    return std::clamp((120 - daylight) / 80, 0.0, 1.0);
}

std::int64_t blockOf(double seconds, double length) {
    return static_cast<std::int64_t>(std::floor(seconds / length));
}

Noise noiseOf(int participant, std::uint64_t seed, std::uint64_t aspect) {
    return {seed, static_cast<std::uint64_t>(participant) * 100 + 1000 + aspect};
}

}  // namespace

DailyLife::DailyLife(int participant, std::uint64_t seed)
    : habits_(habitsOf(participant, seed)),
      openSky_(seed),
      plans_(noiseOf(participant, seed, 1)),
      shade_(noiseOf(participant, seed, 2)),
      sensor_(noiseOf(participant, seed, 3)),
      use_(noiseOf(participant, seed, 4)),
      posture_(noiseOf(participant, seed, 5)),
      head_(noiseOf(participant, seed, 6)) {}

Light DailyLife::lightAt(double secondsSince1970) const {
    const Moment moment = momentAt(secondsSince1970);
    const Place place = placeAt(moment);
    const double shade = std::exp(0.3 * shade_.smooth(moment.seconds / (25 * minute)));
    const double daylight = openSky_.daylight(moment) * shareOfDaylight(place) * shade;
    // Of lamps: somebody walks past, the device is turned.
    const double flicker = 1 + 0.08 * shade_.smooth(1e6 + moment.seconds / (70 * minute)) +
                           0.05 * shade_.smooth(2e6 + moment.seconds / (9 * minute));

    Mixture light;
    light.add(daylight, daylightSpectrum);
    if (place == Place::work && (habits_.workplace == Workplace::office || habits_.workplace == Workplace::windowDesk))
        light.add(330 * flicker, ceilingSpectrum);
    const bool screen = habits_.screenInTheEvening && isEvening(moment);
    if (place == Place::home || (place == Place::work && habits_.workplace == Workplace::home))
        light.add(habits_.lamp * flicker * lampIsOn(daylight) * (screen ? 0.25 : 1), lampSpectrum);
    if (place == Place::home && screen) light.add(22 * flicker, screenSpectrum);
    const double noise = sensor_.at(blockOf(moment.seconds, 1), 0.985, 1.015);
    return light.read(noise * (liesInPocket(place, moment) ? 0.01 : 1));
}

std::optional<Eyes> DailyLife::eyesAt(double secondsSince1970) const {
    const Moment moment = momentAt(secondsSince1970);
    const Place place = placeAt(moment);
    if (use_.at(blockOf(moment.seconds, 40 * minute)) >= shareOfLooking(place, moment)) return std::nullopt;
    const double drift = 5 * posture_.smooth(moment.seconds / (3 * hour));
    const double sway = 2 * posture_.smooth(1e6 + moment.seconds / (30 * minute));
    const double trembling = posture_.at(blockOf(moment.seconds, 1), -0.5, 0.5);
    const double held = isHeldInHand(place, moment) ? -9 : 0;
    const double middle = std::clamp(habits_.eyeDistance + held + drift + sway + trembling, 30.5, 69.5);
    const double turn = 0.25 * head_.smooth(moment.seconds / hour);  // of the head: half of what the eyes differ by
    return Eyes{.left = middle + turn, .right = middle - turn};
}

DailyLife::Place DailyLife::placeAt(const Moment& moment) const {
    constexpr double commute = 0.6;
    if (!isAwake(moment)) return Place::bed;
    if (!moment.isWeekend || habits_.worksOnWeekends) {
        if (moment.hour >= habits_.workBegins && moment.hour < habits_.workEnds) return Place::work;
        const bool commutes = habits_.workplace != Workplace::home;
        if (commutes && moment.hour >= habits_.workBegins - commute && moment.hour < habits_.workEnds + commute)
            return Place::way;
        return Place::home;
    }
    const double leaves = plans_.at(moment.dayOfYear, 10, 16);
    const bool goesOut = plans_.at(-1 - moment.dayOfYear) < 0.75;
    return goesOut && moment.hour >= leaves && moment.hour < leaves + 2.5 ? Place::outing : Place::home;
}

bool DailyLife::isEvening(const Moment& moment) const {
    return (moment.hour >= 19.5 || moment.hour < 4) && isAwake(moment);
}

bool DailyLife::isAwake(const Moment& moment) const {
    // No day is quite like the other.
    return habits_.isAwake(moment.hour + 0.6 * plans_.smooth(moment.seconds / (1.4 * 24 * hour)));
}

bool DailyLife::liesInPocket(Place place, const Moment& moment) const {
    const bool isCarried = place == Place::way || place == Place::outing ||
                           (place == Place::work && habits_.workplace == Workplace::outdoors);
    return isCarried && plans_.at(blockOf(moment.seconds, 30 * minute)) < 0.3;
}

double DailyLife::shareOfDaylight(Place place) const {
    switch (place) {
        case Place::bed:
            return 0.0004;  // behind curtains
        case Place::home:
            return 0.012;
        case Place::way:
            return 0.3;
        case Place::outing:
            return 0.4;
        case Place::work:
            break;
    }
    switch (habits_.workplace) {
        case Workplace::office:
            return 0.005;
        case Workplace::windowDesk:
            return 0.05;
        case Workplace::outdoors:
            return 0.45;
        case Workplace::home:
            return 0.02;
    }
    return 0;
}

double DailyLife::shareOfLooking(Place place, const Moment& moment) const {
    const bool lunch = moment.hour >= 12.25 && moment.hour < 13;
    switch (place) {
        case Place::bed:
            return 0;
        case Place::home:
            return isEvening(moment) && habits_.screenInTheEvening ? 0.85 : 0.35;
        case Place::way:
            return 0.15;
        case Place::outing:
            return 0.08;
        case Place::work:
            return lunch || habits_.workplace == Workplace::outdoors ? 0.12 : 0.85;
    }
    return 0;
}

bool DailyLife::isHeldInHand(Place place, const Moment& moment) const {
    if (place == Place::work) return habits_.workplace == Workplace::outdoors;
    return place != Place::home || !isEvening(moment) || !habits_.screenInTheEvening;
}

}  // namespace simulated_study
