#pragma once

#include <filesystem>
#include <optional>

#include "platform/linux/sensor/light_reading.h"
#include "platform/linux/sensor/light_sensor_layout.h"

namespace tarvex::platform {

/// An ambient light sensor of the kernel's industrial I/O tree: a directory of attribute files. Thread-bound.
///
/// A device that goes away and comes back, also as one of another driver, is read again; in between there is no
/// reading.
class IioLightSensor {
public:
    explicit IioLightSensor(std::filesystem::path directory);

    /// Whether the directory has an attribute that a reading is made of; reads none of them.
    [[nodiscard]] static bool isLightSensor(const std::filesystem::path& directory);

    /// Reads every attribute anew. Absent when the device is gone, or any of its attributes fails or holds no number.
    /// May block for as long as the driver takes.
    [[nodiscard]] std::optional<LightReading> read();

private:
    std::filesystem::path directory_;
    std::optional<LightSensorLayout> layout_;
};

}  // namespace tarvex::platform
