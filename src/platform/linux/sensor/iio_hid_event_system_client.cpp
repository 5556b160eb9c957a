#include "platform/linux/sensor/iio_hid_event_system_client.h"

#include <charconv>
#include <map>
#include <optional>
#include <string>
#include <system_error>

#include "platform/linux/sensor/ambient_light_event.h"
#include "platform/linux/sensor/iio_hid_service.h"
#include "platform/linux/sensor/iio_light_sensor.h"

namespace tarvex::platform {

namespace {

constexpr std::int32_t vendorDefinedPage = 0xFF00;
constexpr std::int32_t ambientLightUsage = 4;

std::optional<unsigned long> deviceNumber(std::string_view name) {
    constexpr std::string_view prefix = "iio:device";
    if (!name.starts_with(prefix)) return std::nullopt;
    const std::string_view digits = name.substr(prefix.size());
    unsigned long number = 0;
    const auto [rest, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc{} || rest != digits.data() + digits.size()) return std::nullopt;
    return number;
}

std::vector<std::shared_ptr<IioHidService>> findLightSensors(const std::filesystem::path& root) {
    std::map<unsigned long, std::filesystem::path> directories;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(root, error), end; !error && entry != end; entry.increment(error)) {
        const auto number = deviceNumber(entry->path().filename().string());
        if (number && IioLightSensor::isLightSensor(entry->path())) directories.emplace(*number, entry->path());
    }
    std::vector<std::shared_ptr<IioHidService>> services;
    services.reserve(directories.size());
    for (const auto& [number, directory] : directories)
        services.push_back(std::make_shared<IioHidService>(directory));
    return services;
}

}  // namespace

IioHidEventSystemClient::IioHidEventSystemClient(const std::filesystem::path& root)
    : lightSensors_(findLightSensors(root)), services_(lightSensors_) {}

IioHidEventSystemClient::~IioHidEventSystemClient() = default;

void IioHidEventSystemClient::setMatching(const HidMatching& matching) {
    services_.clear();
    if (matching.primaryUsagePage == vendorDefinedPage && matching.primaryUsage == ambientLightUsage)
        services_ = lightSensors_;
    restartReporters();
}

std::vector<std::shared_ptr<HidServiceClient>> IioHidEventSystemClient::copyServices() {
    return {services_.begin(), services_.end()};
}

void IioHidEventSystemClient::scheduleWithRunLoop(RunLoop& runLoop) {
    if (runLoop_ == &runLoop) return;
    runLoop_ = &runLoop;
    restartReporters();
}

void IioHidEventSystemClient::unscheduleFromRunLoop(RunLoop& runLoop) {
    if (runLoop_ != &runLoop) return;
    runLoop_ = nullptr;
    restartReporters();
}

void IioHidEventSystemClient::registerEventCallback(HidEventCallback callback, void* target, void* refcon) {
    callback_ = callback;
    target_ = target;
    refcon_ = refcon;
    restartReporters();
}

void IioHidEventSystemClient::unregisterEventCallback() {
    registerEventCallback(nullptr, nullptr, nullptr);
}

void IioHidEventSystemClient::restartReporters() {
    reporters_.clear();
    if (runLoop_ == nullptr || callback_ == nullptr) return;
    for (const auto& service : services_) {
        auto sensor = std::make_shared<IioLightSensor>(service->directory());
        auto read = [sensor] { return sensor->read(); };
        auto interval = [service] { return service->reportInterval(); };
        auto report = [service, callback = callback_, target = target_, refcon = refcon_](const LightReading& reading) {
            AmbientLightEvent event(reading);
            callback(target, refcon, service.get(), &event);
        };
        reporters_.push_back(std::make_unique<LightSensorReporter>(read, interval, *runLoop_, report));
    }
}

}  // namespace tarvex::platform
