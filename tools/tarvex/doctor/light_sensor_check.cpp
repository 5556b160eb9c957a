#include <algorithm>
#include <deque>
#include <map>
#include <system_error>
#include <vector>

#include "doctor/checks.h"
#include "doctor/separate_look.h"
#include "platform/iio/iio_light_sensor.h"
#include "platform/shared/regular_file.h"

namespace tarvex::tool {
namespace {

namespace fs = std::filesystem;

std::string trimmed(std::string text) {
    text.erase(text.find_last_not_of(" \t\r\n") + 1);
    return text;
}

std::string nameOf(const fs::path& sensor) {
    const auto driver = platform::contentsOfRegularFile(sensor / "name", 256);
    return "light sensor " + sensor.filename().string() + (driver ? " (" + trimmed(*driver) + ")" : "");
}

struct Attributes {
    std::string text;  ///< "in_illuminance_input 12, …"
    std::vector<std::string> failing;
};

Attributes attributesOf(const fs::path& sensor) {
    std::map<std::string, fs::path> files;
    std::error_code failure;
    for (fs::directory_iterator entry(sensor, failure); !failure && entry != fs::directory_iterator();
         entry.increment(failure)) {
        const std::string name = entry->path().filename();
        if (name.starts_with("in_illuminance") || name.starts_with("in_intensity")) files.emplace(name, entry->path());
    }
    Attributes result;
    for (const auto& [name, path] : files) {
        const bool isNumber =
            name.ends_with("_raw") || name.ends_with("_input") || name.ends_with("_scale") || name.ends_with("_offset");
        const auto text = platform::contentsOfRegularFile(path, 256);
        if (isNumber && (!text || !platform::parseSensorNumber(*text)))
            result.failing.push_back(name + (text ? " reads \"" + trimmed(*text) + "\"" : " cannot be read"));
        if (text) result.text += (result.text.empty() ? "" : ", ") + name + " " + trimmed(*text);
    }
    return result;
}

bool hasLevel(const Attributes& attributes) {
    return attributes.text.starts_with("in_illuminance") ||
           attributes.text.find(", in_illuminance") != std::string::npos;
}

Finding look(const fs::path& sensor) {
    const Attributes attributes = attributesOf(sensor);
    const auto reading = platform::IioLightSensor(sensor).read();
    if (!reading) {
        std::string why;
        for (const std::string& one : attributes.failing)
            why += (why.empty() ? "" : ", ") + one;
        return bad(nameOf(sensor), why.empty() ? "it has no reading" : why,
                   "see what the driver says: sudo dmesg | grep -i -e iio -e als");
    }
    if (!hasLevel(attributes))
        return note(nameOf(sensor), "it has channels and no illuminance, so that lux is always 0; " + attributes.text);
    return good(nameOf(sensor), "lux " + std::to_string(reading->lux) + "; " + attributes.text);
}

/// The module of the sensor's driver, where the kernel names it.
std::string moduleOf(const fs::path& sensor) {
    std::error_code failure;
    const auto module = fs::read_symlink(sensor / ".." / "driver" / "module", failure);
    return failure ? "DRIVER" : module.filename().string();
}

Finding unanswered(const fs::path& sensor) {
    const std::string module = moduleOf(sensor);
    return bad("light sensor " + sensor.filename().string(), "its driver does not answer",
               "load its driver anew: sudo modprobe --remove " + module + " && sudo modprobe " + module +
                   (module == "DRIVER" ? " (see lsmod)" : "") + "; if that hangs too, start the device anew");
}

}  // namespace

Findings checkLightSensors(const fs::path& root, std::chrono::milliseconds patience) {
    Findings findings;
    std::vector<fs::path> devices;
    std::error_code failure;
    for (fs::directory_iterator entry(root, failure); !failure && entry != fs::directory_iterator();
         entry.increment(failure)) {
        const bool isDevice = entry->path().filename().string().starts_with("iio:device");
        if (isDevice && platform::IioLightSensor::isLightSensor(entry->path())) devices.push_back(entry->path());
    }
    std::ranges::sort(devices);
    const auto deadline = std::chrono::steady_clock::now() + patience;
    std::deque<SeparateLook> looks;
    for (const fs::path& device : devices)
        looks.emplace_back([&device] { return Findings{look(device)}; });
    for (std::size_t number = 0; number < devices.size(); ++number) {
        const auto answer = looks[number].findings(deadline);
        findings.push_back(answer ? answer->front() : unanswered(devices[number]));
    }
    if (findings.empty())
        findings.push_back(
            bad("light sensor", "there is none in " + root.string(),
                "load the driver of this device's sensor, for most laptops: sudo modprobe hid_sensor_als"));
    return findings;
}

}  // namespace tarvex::tool
