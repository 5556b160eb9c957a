#include "platform/iio/iio_hid_event_system.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "platform/iio/iio_light_sensor.h"
#include "platform/iio/light_sensor_reporter.h"
#include "platform/shared/own_file.h"
#include "tarvex/platform/diagnostics.h"

namespace tarvex::platform {

namespace {

constexpr HidMatching ambientLight = {.primaryUsagePage = 0xFF00, .primaryUsage = 4};

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

std::optional<unsigned long> deviceNumber(std::string_view name) {
    constexpr std::string_view prefix = "iio:device";
    if (!name.starts_with(prefix)) return std::nullopt;
    const std::string_view digits = name.substr(prefix.size());
    unsigned long number = 0;
    const auto [rest, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc{} || rest != digits.data() + digits.size()) return std::nullopt;
    return number;
}

using Services = std::vector<std::shared_ptr<IioHidService>>;

Services findLightSensors(const std::filesystem::path& root) {
    std::map<unsigned long, std::filesystem::path> directories;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(root, error), end; !error && entry != end; entry.increment(error)) {
        const auto number = deviceNumber(entry->path().filename().string());
        if (number && IioLightSensor::isLightSensor(entry->path())) directories.emplace(*number, entry->path());
    }
    Services services;
    services.reserve(directories.size());
    for (const auto& [number, directory] : directories)
        services.push_back(std::make_shared<IioHidService>(directory));
    logDebug(std::to_string(services.size()) + " light sensors in " + root.native());
    return services;
}

class IioHidEventSystemClient final : public HidEventSystemClient {
public:
    explicit IioHidEventSystemClient(const std::filesystem::path& root)
        : lightSensors_(findLightSensors(root)), services_(lightSensors_) {}

    void setMatching(const HidMatching& matching) override {
        restartReporters([&] {
            services_ = matching == ambientLight ? lightSensors_ : Services();
            return true;
        });
    }

    std::vector<std::shared_ptr<HidServiceClient>> copyServices() override {
        const std::lock_guard lock(mutex_);
        return {services_.begin(), services_.end()};
    }

    void scheduleWithRunLoop(RunLoop& runLoop) override {
        restartReporters([&] { return std::exchange(runLoop_, &runLoop) != &runLoop; });
    }

    void unscheduleFromRunLoop(RunLoop& runLoop) override {
        restartReporters([&] {
            if (runLoop_ != &runLoop) return false;
            runLoop_ = nullptr;
            return true;
        });
    }

    void registerEventCallback(HidEventCallback callback, void* target, void* refcon) override {
        restartReporters([&] {
            callback_ = callback;
            target_ = target;
            refcon_ = refcon;
            return true;
        });
    }

    void unregisterEventCallback() override { registerEventCallback(nullptr, nullptr, nullptr); }

private:
    using Reporters = std::vector<std::unique_ptr<LightSensorReporter>>;

    /// Makes the change, and new reporters for the state after it; neither when `change` returns false.
    void restartReporters(const std::function<bool()>& change) {
        Reporters ended;  // without the lock: their end waits for a callback, which may use this client
        const std::lock_guard lock(mutex_);
        if (change()) ended = std::exchange(reporters_, makeReporters());
    }

    Reporters makeReporters() const {
        Reporters reporters;
        if (runLoop_ == nullptr || callback_ == nullptr) return reporters;
        for (const auto& service : services_) {
            auto sensor = std::make_shared<IioLightSensor>(service->directory());
            auto read = [sensor] { return sensor->read(); };
            auto interval = [service] { return service->reportInterval(); };
            auto report = [service, callback = callback_, target = target_,
                           refcon = refcon_](const LightReading& reading) {
                AmbientLightEvent event(reading);
                callback(target, refcon, service.get(), &event);
            };
            reporters.push_back(std::make_unique<LightSensorReporter>(read, interval, *runLoop_, report));
        }
        return reporters;
    }

    std::mutex mutex_;
    const Services lightSensors_;
    Services services_;  // those of them that match
    RunLoop* runLoop_ = nullptr;
    HidEventCallback callback_ = nullptr;
    void* target_ = nullptr;
    void* refcon_ = nullptr;
    Reporters reporters_;
};

}  // namespace

bool IioHidService::setProperty(std::string_view key, std::int32_t value) {
    using std::chrono::microseconds;
    constexpr microseconds usual = std::chrono::seconds(1);
    constexpr microseconds shortest = std::chrono::milliseconds(100);
    if (key != "ReportInterval") return false;
    reportInterval_ = value > 0 ? std::max(shortest, microseconds(value)) : usual;
    return true;
}

IioHidEventSystem::IioHidEventSystem(std::filesystem::path root) : root_(absolutePath(std::move(root))) {}

std::unique_ptr<HidEventSystemClient> IioHidEventSystem::createClient() {
    return std::make_unique<IioHidEventSystemClient>(root_);
}

}  // namespace tarvex::platform
