#include "noise.h"

#include <cmath>

namespace simulated_study {

namespace {

// The finishing steps of SplitMix64: every bit of the result depends on every bit of the value.
constexpr std::uint64_t mixed(std::uint64_t value) {
    value += 0x9E3779B97F4A7C15;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

}  // namespace

Noise::Noise(std::uint64_t seed, std::uint64_t stream) : state_(mixed(mixed(seed) ^ stream)) {}

double Noise::at(std::int64_t place, double low, double high) const {
    const std::uint64_t bits = mixed(state_ ^ mixed(static_cast<std::uint64_t>(place)));
    return low + (high - low) * std::ldexp(static_cast<double>(bits >> 11), -53);
}

double Noise::smooth(double position) const {
    const double floor = std::floor(position);
    const auto place = static_cast<std::int64_t>(floor);
    const double part = position - floor;
    const double weight = part * part * (3 - 2 * part);
    return at(place, -1, 1) * (1 - weight) + at(place + 1, -1, 1) * weight;
}

}  // namespace simulated_study
