#include "tarvex/ambient_light_sensor.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include "platform/platform.h"

namespace tarvex {

namespace {

// One copy per process: the sensor has one last reading, whoever asks for it.
struct SensorState {
    std::int32_t checkInterval = 1;
    std::int32_t currentLux = 0;
    std::array<float, 4> channels{};
    platform::RunLoop* hidRunLoop = nullptr;
    std::unique_ptr<platform::HidEventSystemClient> hidClient;
    bool running = false;
    // Replaced while they ran: these keep reporting, since nobody stopped them.
    std::vector<std::unique_ptr<platform::HidEventSystemClient>> replacedClients;
};

SensorState& sensor() {
    static SensorState& state = *new SensorState;
    return state;
}

std::int32_t microseconds(std::int32_t milliseconds) {
    using Limits = std::numeric_limits<std::int32_t>;
    const std::int64_t exact = std::int64_t{milliseconds} * 1000;
    return static_cast<std::int32_t>(std::clamp<std::int64_t>(exact, Limits::min(), Limits::max()));
}

// What the client is given: a symbol of the host's with the exported function's name cannot take its place.
void receiveEvent(void* /*target*/, void* /*refcon*/, platform::HidServiceClient* /*sender*/,
                  platform::HidEvent* event) {
    if (event->type() != platform::ambientLightSensorEvent) return;
    SensorState& state = sensor();
    state.currentLux = static_cast<std::int32_t>(event->integerValue(platform::ambientLightLevelField));
    for (std::uint32_t i = 0; i < state.channels.size(); ++i)
        state.channels[i] = static_cast<float>(event->floatValue(platform::ambientLightChannel0Field + i));
}

}  // namespace

void TXAmbientLightSensor::init_iokit(std::int32_t milliseconds) {
    constexpr platform::HidMatching ambientLightSensor{.primaryUsagePage = 0xFF00, .primaryUsage = 4};
    SensorState& state = sensor();
    platform::Platform& platform = platform::Platform::current();

    state.checkInterval = milliseconds;
    state.hidRunLoop = &platform.mainRunLoop();
    if (state.running) state.replacedClients.push_back(std::move(state.hidClient));
    state.running = false;
    state.hidClient = platform.hidEventSystem().createClient();
    state.hidClient->setMatching(ambientLightSensor);
    const auto services = state.hidClient->copyServices();
    if (!services.empty()) services.front()->setProperty("ReportInterval", microseconds(state.checkInterval));
}

void TXAmbientLightSensor::start_iokit() {
    SensorState& state = sensor();
    if (!state.hidClient) return;
    state.hidClient->scheduleWithRunLoop(*state.hidRunLoop);
    state.hidClient->registerEventCallback(receiveEvent, nullptr, nullptr);
    state.running = true;
}

void TXAmbientLightSensor::stop_iokit() {
    SensorState& state = sensor();
    if (!state.hidClient) return;
    state.hidClient->unregisterEventCallback();
    state.hidClient->unscheduleFromRunLoop(*state.hidRunLoop);
    state.running = false;
}

void TXAmbientLightSensor::get_lux(std::int32_t* lux, float* ch0, float* ch1, float* ch2, float* ch3) {
    const SensorState& state = sensor();
    *lux = state.currentLux;
    *ch0 = state.channels[0];
    *ch1 = state.channels[1];
    *ch2 = state.channels[2];
    *ch3 = state.channels[3];
}

}  // namespace tarvex

void handle_event(void* target, void* refcon, tarvex::platform::HidServiceClient* sender,
                  tarvex::platform::HidEvent* event) {
    tarvex::receiveEvent(target, refcon, sender, event);
}
