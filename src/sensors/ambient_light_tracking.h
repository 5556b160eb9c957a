#pragma once

#include <cstdint>

#include "storage/persistence_controller.h"
#include "tarvex/ambient_light_sensor.h"

namespace tarvex {

/// Turns the ambient light sensor's last reading into stored samples. Reentrant.
///
/// It neither initialises nor starts the sensor; its end stops the sensor.
class AmbientLightTracking {
public:
    explicit AmbientLightTracking(PersistenceController& store) : store_(store) {}
    ~AmbientLightTracking() { TXAmbientLightSensor::stop_iokit(); }
    AmbientLightTracking(const AmbientLightTracking&) = delete;
    AmbientLightTracking& operator=(const AmbientLightTracking&) = delete;

    /// One tick: stores the sensor's last reading, also when the sensor has not reported since the last tick.
    void recordSample() {
        TXAmbientLightSensor::get_lux(&lux_, &channel0_, &channel1_, &channel2_, &channel3_);
        store_.saveTrackingData(DataReader::ambientLight(std::nullopt), {{"lux", lux_},
                                                                         {"channel0", channel0_},
                                                                         {"channel1", channel1_},
                                                                         {"channel2", channel2_},
                                                                         {"channel3", channel3_}});
    }

private:
    PersistenceController& store_;
    std::int32_t lux_ = 0;
    float channel0_ = 0;
    float channel1_ = 0;
    float channel2_ = 0;
    float channel3_ = 0;
};

}  // namespace tarvex
