#pragma once

#include "platform/iio/light_reading.h"
#include "tarvex/platform/hid_event_system.h"

namespace tarvex::platform {

/// A reading as the event that reports it.
class AmbientLightEvent final : public HidEvent {
public:
    explicit AmbientLightEvent(const LightReading& reading) : reading_(reading) {}

    [[nodiscard]] HidEventType type() const override { return ambientLightSensorEvent; }

    /// The level, cut to the width of a pointer; 0 for the channels, which are floats.
    [[nodiscard]] std::intptr_t integerValue(HidEventField field) const override {
        return field == ambientLightLevelField ? static_cast<std::intptr_t>(reading_.lux) : 0;
    }

    /// The level or a channel.
    [[nodiscard]] double floatValue(HidEventField field) const override {
        if (field == ambientLightLevelField) return static_cast<double>(reading_.lux);
        const HidEventField channel = field - ambientLightChannel0Field;
        return channel < reading_.channels.size() ? reading_.channels[channel] : 0;
    }

private:
    LightReading reading_;
};

}  // namespace tarvex::platform
