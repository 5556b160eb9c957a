#pragma once

#include <atomic>

#include "tarvex/platform/clock.h"

namespace tarvex::testing {

/// A clock that stands still until a test moves it. Thread-safe.
class ManualClock final : public platform::Clock {
public:
    explicit ManualClock(double secondsSince1970 = 0) : seconds_(secondsSince1970) {}

    [[nodiscard]] double secondsSince1970() const override { return seconds_.load(); }

    void set(double secondsSince1970) { seconds_.store(secondsSince1970); }
    void advance(double seconds) { seconds_.fetch_add(seconds); }

private:
    std::atomic<double> seconds_;
};

}  // namespace tarvex::testing
