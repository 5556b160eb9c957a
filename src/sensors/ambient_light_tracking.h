#pragma once

#include <cstdint>

#include "storage/persistence_controller.h"

namespace tarvex {

/// Turns the ambient light sensor's last reading into stored samples. Thread-bound to the main thread.
///
/// It neither initialises nor starts the sensor; releasing it stops the sensor.
class AmbientLightTracking {
public:
    explicit AmbientLightTracking(PersistenceController& store);
    ~AmbientLightTracking();
    AmbientLightTracking(const AmbientLightTracking&) = delete;
    AmbientLightTracking& operator=(const AmbientLightTracking&) = delete;

    /// One tick: stores the sensor's last reading as it is, whether or not the sensor has reported since the last tick.
    void recordSample();

private:
    PersistenceController& store_;
    std::int32_t lux_ = 0;
    float channel0_ = 0;
    float channel1_ = 0;
    float channel2_ = 0;
    float channel3_ = 0;
};

}  // namespace tarvex
