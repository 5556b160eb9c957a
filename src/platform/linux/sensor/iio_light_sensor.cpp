#include "platform/linux/sensor/iio_light_sensor.h"

#include <system_error>
#include <utility>

#include "platform/linux/sensor/sensor_attribute.h"

namespace tarvex::platform {

namespace {

std::optional<LightSensorLayout> layoutOf(const std::filesystem::path& directory) {
    LightSensorLayout::Names names;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
         entry.increment(error))
        names.insert(entry->path().filename().string());
    return LightSensorLayout::of(names);
}

}  // namespace

IioLightSensor::IioLightSensor(std::filesystem::path directory) : directory_(std::move(directory)) {}

bool IioLightSensor::isLightSensor(const std::filesystem::path& directory) {
    return layoutOf(directory).has_value();
}

std::optional<LightReading> IioLightSensor::read() {
    if (!layout_) layout_ = layoutOf(directory_);
    if (!layout_) return std::nullopt;
    const auto reading = layout_->read([this](const std::string& name) { return readSensorNumber(directory_ / name); });
    // The layout is kept while it works: an attribute that vanishes with its device must not pass for one that the
    // device never had.
    if (!reading) layout_.reset();
    return reading;
}

}  // namespace tarvex::platform
