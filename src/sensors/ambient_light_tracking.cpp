#include "sensors/ambient_light_tracking.h"

#include "tarvex/ambient_light_sensor.h"

namespace tarvex {

AmbientLightTracking::AmbientLightTracking(PersistenceController& store) : store_(store) {}

AmbientLightTracking::~AmbientLightTracking() {
    TXAmbientLightSensor::stop_iokit();
}

void AmbientLightTracking::recordSample() {
    TXAmbientLightSensor::get_lux(&lux_, &channel0_, &channel1_, &channel2_, &channel3_);
    store_.saveTrackingData(DataReader::ambientLight(std::nullopt), {{"lux", lux_},
                                                                     {"channel0", channel0_},
                                                                     {"channel1", channel1_},
                                                                     {"channel2", channel2_},
                                                                     {"channel3", channel3_}});
}

}  // namespace tarvex
