#include "open_sky.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <numbers>

namespace simulated_study {

namespace {

constexpr double minute = 60;
constexpr double hour = 60 * minute;
constexpr double day = 24 * hour;

// From 8 hours in winter to 16 in summer.
double hoursOfDaylight(int dayOfYear) {
    return 12 + 4 * std::sin(2 * std::numbers::pi * (dayOfYear - 81) / 365);
}

}  // namespace

Moment momentAt(double secondsSince1970) {
    const auto whole = static_cast<std::time_t>(secondsSince1970);
    std::tm local{};
    localtime_r(&whole, &local);
    return {.seconds = secondsSince1970,
            .hour = local.tm_hour + local.tm_min / 60.0 + local.tm_sec / 3600.0,
            .dayOfYear = local.tm_yday,
            .isWeekend = local.tm_wday == 0 || local.tm_wday == 6};
}

double OpenSky::daylight(const Moment& moment) const {
    constexpr double noon = 12.4;
    constexpr double brightest = 75'000;
    constexpr double atSunrise = 400;
    const double length = hoursOfDaylight(moment.dayOfYear);
    const double untilNight = length / 2 - std::abs(moment.hour - noon);  // in hours, negative at night
    const double twilight = atSunrise * std::exp(std::min(untilNight, 0.0) * 7);
    // The shorter the day, the lower its sun.
    const double sun = untilNight > 0 ? std::sin(std::numbers::pi / 2 * untilNight * 2 / length) * length / 16 : 0;
    return (brightest * std::pow(sun, 1.4) + twilight) * cloudTransmission(moment);
}

double OpenSky::cloudTransmission(const Moment& moment) const {
    const double weather = (1 + noise_.smooth(moment.seconds / (1.3 * day))) / 2;  // of the day: 0 is clear
    const double banks = noise_.smooth(1e6 + moment.seconds / (50 * minute));
    const double clouds = noise_.smooth(2e6 + moment.seconds / (13 * minute));
    return std::clamp(1 - weather * (0.6 + 0.35 * banks + 0.15 * clouds), 0.08, 1.0);
}

}  // namespace simulated_study
