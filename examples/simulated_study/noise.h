#pragma once

#include <cstdint>

namespace simulated_study {

/// Random numbers that depend on nothing but the seed, the stream and the place that is asked for: the same everywhere,
/// in any order. Thread-safe.
class Noise {
public:
    Noise(std::uint64_t seed, std::uint64_t stream);

    /// A number from `low` up to, but without, `high`.
    double at(std::int64_t place, double low = 0, double high = 1) const;

    /// A number of -1 to 1 that passes smoothly from one whole position to the next.
    double smooth(double position) const;

private:
    std::uint64_t state_;
};

}  // namespace simulated_study
