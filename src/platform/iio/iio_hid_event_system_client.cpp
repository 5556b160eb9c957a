#include "platform/iio/iio_hid_event_system_client.h"

#include <charconv>
#include <map>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "platform/iio/ambient_light_event.h"
#include "platform/iio/iio_hid_service.h"
#include "platform/iio/iio_light_sensor.h"

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
    restartReporters([&] {
        services_.clear();
        if (matching.primaryUsagePage == vendorDefinedPage && matching.primaryUsage == ambientLightUsage)
            services_ = lightSensors_;
        return true;
    });
}

std::vector<std::shared_ptr<HidServiceClient>> IioHidEventSystemClient::copyServices() {
    const std::lock_guard lock(mutex_);
    return {services_.begin(), services_.end()};
}

void IioHidEventSystemClient::scheduleWithRunLoop(RunLoop& runLoop) {
    restartReporters([&] { return std::exchange(runLoop_, &runLoop) != &runLoop; });
}

void IioHidEventSystemClient::unscheduleFromRunLoop(RunLoop& runLoop) {
    restartReporters([&] {
        if (runLoop_ != &runLoop) return false;
        runLoop_ = nullptr;
        return true;
    });
}

void IioHidEventSystemClient::registerEventCallback(HidEventCallback callback, void* target, void* refcon) {
    restartReporters([&] {
        callback_ = callback;
        target_ = target;
        refcon_ = refcon;
        return true;
    });
}

void IioHidEventSystemClient::unregisterEventCallback() {
    registerEventCallback(nullptr, nullptr, nullptr);
}

void IioHidEventSystemClient::restartReporters(const std::function<bool()>& change) {
    Reporters ended;  // without the lock: their end waits for a callback, which may use this client
    const std::lock_guard lock(mutex_);
    if (change()) ended = std::exchange(reporters_, makeReporters());
}

IioHidEventSystemClient::Reporters IioHidEventSystemClient::makeReporters() const {
    Reporters reporters;
    if (runLoop_ == nullptr || callback_ == nullptr) return reporters;
    for (const auto& service : services_) {
        auto sensor = std::make_shared<IioLightSensor>(service->directory());
        auto read = [sensor] { return sensor->read(); };
        auto interval = [service] { return service->reportInterval(); };
        auto report = [service, callback = callback_, target = target_, refcon = refcon_](const LightReading& reading) {
            AmbientLightEvent event(reading);
            callback(target, refcon, service.get(), &event);
        };
        reporters.push_back(std::make_unique<LightSensorReporter>(read, interval, *runLoop_, report));
    }
    return reporters;
}

}  // namespace tarvex::platform
