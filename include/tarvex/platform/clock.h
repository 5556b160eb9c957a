#pragma once

#include "tarvex/export.h"

namespace tarvex::platform {

/// Tells when a sample was taken: the time of day, which may jump. Thread-safe.
class TARVEX_EXPORT Clock {
public:
    virtual ~Clock() = default;

    /// Seconds since 1970-01-01 00:00:00 UTC, with their fraction.
    virtual double secondsSince1970() const = 0;
};

}  // namespace tarvex::platform
