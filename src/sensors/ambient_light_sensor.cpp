#include "tarvex/ambient_light_sensor.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "tarvex/platform/platform.h"

namespace tarvex {

namespace {

struct Reading {
    std::int32_t lux = 0;
    std::array<float, 4> channels{};
};

// The process has one copy: the sensor has one last reading.
struct LastReading {
    std::mutex mutex;
    Reading reading;
};

LastReading& lastReading() {
    static LastReading& last = *new LastReading;
    return last;
}

struct SensorClients {
    // Held while a client is called, which may wait for the event that the main thread handles. An event takes the
    // reading's mutex only.
    std::mutex mutex;
    std::int32_t checkInterval = 1;
    platform::RunLoop* hidRunLoop = nullptr;
    std::unique_ptr<platform::HidEventSystemClient> hidClient;
    bool running = false;
    // Clients that were replaced while they ran report until the sensor is stopped.
    std::vector<std::unique_ptr<platform::HidEventSystemClient>> replacedClients;

    void endEvents(platform::HidEventSystemClient& client) const {
        client.unregisterEventCallback();
        client.unscheduleFromRunLoop(*hidRunLoop);
    }
};

SensorClients& sensorClients() {
    static SensorClients& clients = *new SensorClients;
    return clients;
}

std::int32_t microseconds(std::int32_t milliseconds) {
    using Limits = std::numeric_limits<std::int32_t>;
    const std::int64_t exact = std::int64_t{milliseconds} * 1000;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(exact, Limits::min(), Limits::max()));
}

// Registered in place of the exported function, whose name a symbol of the host could have as well.
void receiveEvent(void* /*target*/, void* /*refcon*/, platform::HidServiceClient* /*sender*/,
                  platform::HidEvent* event) {
    if (event->type() != platform::ambientLightSensorEvent) return;
    Reading reading{.lux = static_cast<std::int32_t>(event->integerValue(platform::ambientLightLevelField))};
    for (std::uint32_t i = 0; i < reading.channels.size(); ++i)
        reading.channels[i] = static_cast<float>(event->floatValue(platform::ambientLightChannel0Field + i));
    LastReading& last = lastReading();
    const std::lock_guard lock(last.mutex);
    last.reading = reading;
}

}  // namespace

void TXAmbientLightSensor::init_iokit(std::int32_t milliseconds) {
    constexpr platform::HidMatching ambientLightSensor{.primaryUsagePage = 0xFF00, .primaryUsage = 4};
    platform::Platform& platform = platform::Platform::current();
    SensorClients& clients = sensorClients();
    const std::lock_guard lock(clients.mutex);

    clients.checkInterval = milliseconds;
    clients.hidRunLoop = &platform.mainRunLoop();
    auto client = platform.hidEventSystem().createClient();
    if (clients.running) clients.replacedClients.push_back(std::move(clients.hidClient));
    clients.running = false;
    clients.hidClient = std::move(client);
    clients.hidClient->setMatching(ambientLightSensor);
    const auto services = clients.hidClient->copyServices();
    if (!services.empty()) services.front()->setProperty("ReportInterval", microseconds(clients.checkInterval));
}

void TXAmbientLightSensor::start_iokit() {
    SensorClients& clients = sensorClients();
    const std::lock_guard lock(clients.mutex);
    if (!clients.hidClient) return;
    clients.hidClient->scheduleWithRunLoop(*clients.hidRunLoop);
    clients.hidClient->registerEventCallback(receiveEvent, nullptr, nullptr);
    clients.running = true;
}

void TXAmbientLightSensor::stop_iokit() {
    SensorClients& clients = sensorClients();
    const std::lock_guard lock(clients.mutex);
    if (!clients.hidClient) return;
    clients.endEvents(*clients.hidClient);
    clients.running = false;
    for (const auto& replaced : clients.replacedClients)
        clients.endEvents(*replaced);
    clients.replacedClients.clear();
}

void TXAmbientLightSensor::get_lux(std::int32_t* lux, float* ch0, float* ch1, float* ch2, float* ch3) {
    LastReading& last = lastReading();
    const std::lock_guard lock(last.mutex);
    *lux = last.reading.lux;
    *ch0 = last.reading.channels[0];
    *ch1 = last.reading.channels[1];
    *ch2 = last.reading.channels[2];
    *ch3 = last.reading.channels[3];
}

}  // namespace tarvex

void handle_event(void* target, void* refcon, tarvex::platform::HidServiceClient* sender,
                  tarvex::platform::HidEvent* event) {
    tarvex::receiveEvent(target, refcon, sender, event);
}
