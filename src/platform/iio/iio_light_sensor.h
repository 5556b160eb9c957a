#pragma once

#include <dirent.h>
#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <utility>

#include "platform/iio/light_sensor_layout.h"
#include "platform/shared/handle.h"

namespace tarvex::platform {

/// An ambient light sensor of the kernel's industrial I/O tree: a directory of attribute files. Reentrant.
///
/// An attribute that appears counts from the next reading on. When one goes away, with no other in its place, the
/// sensor has no reading until it is back: the 0 of a number that a device never had would pass for darkness. A device
/// that goes away and comes back, also with another driver, is read again; in between there is no reading.
class IioLightSensor {
public:
    explicit IioLightSensor(std::filesystem::path directory);

    /// True when the directory has an attribute that a reading is made of; reads none of them.
    [[nodiscard]] static bool isLightSensor(const std::filesystem::path& directory);

    /// Reads every attribute anew. Absent when the device is gone, or any of its attributes is gone, fails or holds no
    /// number. All of a reading is of one device and one layout. May block for as long as the driver takes.
    [[nodiscard]] std::optional<LightReading> read();

private:
    /// A device as it was found. Its directory stays open: reads through it are of this device, also when another one
    /// has taken its path, and no other device gets its inode.
    struct Device {
        Handle<DIR, closedir> directory;
        std::pair<dev_t, ino_t> inode;
        LightSensorLayout layout;
    };

    static std::optional<Device> deviceAt(const std::filesystem::path& path);

    std::filesystem::path directory_;
    std::optional<Device> device_;
};

}  // namespace tarvex::platform
