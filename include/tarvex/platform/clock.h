#pragma once

#include "tarvex/export.h"

namespace tarvex::platform {

/// The time of day, which dates samples and may jump. Thread-safe.
class TARVEX_EXPORT Clock {
public:
    virtual ~Clock() = default;

    /// Seconds since 1970-01-01 00:00:00 UTC, with their fraction.
    virtual double secondsSince1970() const = 0;
};

}  // namespace tarvex::platform
