// A device of any shape with any contents: each line of the input is an attribute, its name, '=' and its text.
// Whatever it says, a reading is complete and made of numbers that a record can carry.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <map>
#include <string>
#include <string_view>

#include "platform/iio/light_sensor_layout.h"

namespace {

using namespace tarvex::platform;

void require(bool condition) {
    if (!condition) std::abort();
}

std::map<std::string, std::string> attributesIn(std::string_view input) {
    std::map<std::string, std::string> attributes;
    while (!input.empty()) {
        const std::string_view line = input.substr(0, input.find('\n'));
        input.remove_prefix(std::min(line.size() + 1, input.size()));
        const std::size_t equals = std::min(line.find('='), line.size());
        const std::string_view text = line.substr(std::min(equals + 1, line.size()));
        attributes.emplace(line.substr(0, equals), text);
    }
    return attributes;
}

void checkNumber(const std::string& text) {
    const auto number = parseSensorNumber(text);
    require(!number || std::isfinite(*number));
    require(number == parseSensorNumber(text + "\n"));
    require(!number || text.find_first_not_of("+-.0123456789eE \t\r\n") == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto attributes = attributesIn({reinterpret_cast<const char*>(data), size});
    LightSensorLayout::Names names;
    for (const auto& [name, text] : attributes) {
        checkNumber(text);
        names.insert(name);
    }
    const auto layout = LightSensorLayout::of(names);
    if (!layout) return 0;
    bool complete = true;
    const auto reading = layout->read([&](const std::string& name) {
        const auto number = parseSensorNumber(attributes.at(name));  // throws for a name that the device lacks
        complete = complete && number.has_value();
        return number;
    });
    require(complete || !reading);
    if (reading)
        for (const double channel : reading->channels)
            require(std::abs(channel) <= double{std::numeric_limits<float>::max()});
    return 0;
}
