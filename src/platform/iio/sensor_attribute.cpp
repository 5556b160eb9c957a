#include "platform/iio/sensor_attribute.h"

#include <charconv>
#include <cmath>

#include "platform/shared/regular_file.h"

namespace tarvex::platform {

namespace {

// Numbers of the kernel are far shorter; a file that is longer holds something else.
constexpr std::size_t longestAttribute = 256;

}  // namespace

std::optional<double> parseSensorNumber(std::string_view text) {
    const std::size_t last = text.find_last_not_of(" \t\r\n");
    if (last == std::string_view::npos) return std::nullopt;
    text = text.substr(0, last + 1);
    double number = 0;
    const auto [rest, error] = std::from_chars(text.begin(), text.end(), number);
    if (error != std::errc{} || rest != text.end() || !std::isfinite(number)) return std::nullopt;
    return number;
}

std::optional<double> readSensorNumber(int device, const std::string& name) {
    const auto text = contentsOfRegularFile(name, longestAttribute, device);
    return text ? parseSensorNumber(*text) : std::nullopt;
}

}  // namespace tarvex::platform
