#include "platform/iio/iio_light_sensor.h"

#include <sys/stat.h>

#include <string_view>
#include <utility>

#include "platform/shared/regular_file.h"

namespace tarvex::platform {

namespace {

// A device that changes more often than this during one look is coming or going.
constexpr int mostAttempts = 3;

// Numbers of the kernel are far shorter; a file that is longer holds something else.
constexpr std::size_t longestAttribute = 256;

std::optional<double> readSensorNumber(int device, const std::string& name) {
    const auto text = contentsOfRegularFile(name, longestAttribute, device);
    return text ? parseSensorNumber(*text) : std::nullopt;
}

}  // namespace

IioLightSensor::IioLightSensor(std::filesystem::path directory) : directory_(std::move(directory)) {}

bool IioLightSensor::isLightSensor(const std::filesystem::path& directory) {
    return deviceAt(directory).has_value();
}

// The directory is listed after every reading: nothing else shows that an attribute has appeared, and it costs as
// much as to read two of them. It also proves that the layout held while its attributes were read.
std::optional<LightReading> IioLightSensor::read() {
    for (int attempt = 0; attempt < mostAttempts; ++attempt) {
        std::optional<LightReading> reading;
        if (device_) {
            const int device = dirfd(device_->directory.get());
            reading = device_->layout.read([&](const std::string& name) { return readSensorNumber(device, name); });
        }
        auto found = deviceAt(directory_);
        if (found && device_ && found->inode == device_->inode) {
            if (found->layout == device_->layout) return reading;
            if (!found->layout.hasAllOf(device_->layout)) return std::nullopt;
        }
        device_ = std::move(found);
        if (!device_) return std::nullopt;
    }
    return std::nullopt;
}

std::optional<IioLightSensor::Device> IioLightSensor::deviceAt(const std::filesystem::path& path) {
    Handle<DIR, closedir> directory(opendir(path.c_str()));
    if (!directory) return std::nullopt;
    const int file = dirfd(directory.get());
    struct stat status{};
    if (file < 0 || fstat(file, &status) != 0) return std::nullopt;
    LightSensorLayout::Names names;
    while (const dirent* entry = readdir(directory.get()))
        if (const std::string_view name = entry->d_name; name.starts_with("in_")) names.emplace(name);
    auto layout = LightSensorLayout::of(names);
    if (!layout) return std::nullopt;
    return Device{std::move(directory), {status.st_dev, status.st_ino}, std::move(*layout)};
}

}  // namespace tarvex::platform
