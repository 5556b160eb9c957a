#include "tarvex/testing/scripted_light_sensor.h"

#include <algorithm>
#include <mutex>
#include <optional>
#include <utility>

namespace tarvex::testing {

using namespace platform;

/// State that the system, its clients and its services share; each may outlive the others.
struct ScriptedHidEventSystem::Script {
    // Held throughout a callback, which may use the clients: another thread's end of events waits for it.
    std::recursive_mutex mutex;
    std::vector<std::shared_ptr<Service>> services;
    std::vector<Client*> clients;
    std::vector<HidMatching> matchings;
    std::vector<PropertySet> propertiesSet;
    std::vector<std::string> calls;
};

class ScriptedHidEventSystem::Service final : public HidServiceClient {
public:
    Service(std::weak_ptr<Script> script, std::size_t place) : script_(std::move(script)), place_(place) {}

    bool setProperty(std::string_view key, std::int32_t value) override {
        if (const auto script = script_.lock()) {
            const std::lock_guard lock(script->mutex);
            script->propertiesSet.push_back({place_, std::string(key), value});
        }
        return key == "ReportInterval";
    }

private:
    std::weak_ptr<Script> script_;
    std::size_t place_;
};

class ScriptedHidEventSystem::Event final : public HidEvent {
public:
    Event(HidEventType type, Fields fields) : type_(type), fields_(std::move(fields)) {}

    /// The level may be any integer: a double would lose its low bits.
    Event(std::intptr_t lux, Fields channels)
        : type_(ambientLightSensorEvent), lux_(lux), fields_(std::move(channels)) {}

    [[nodiscard]] HidEventType type() const override { return type_; }
    [[nodiscard]] std::intptr_t integerValue(HidEventField field) const override {
        if (lux_ && field == ambientLightLevelField) return *lux_;
        return static_cast<std::intptr_t>(floatValue(field));
    }
    [[nodiscard]] double floatValue(HidEventField field) const override {
        const auto found = fields_.find(field);
        return found == fields_.end() ? 0 : found->second;
    }

private:
    HidEventType type_;
    std::optional<std::intptr_t> lux_;
    Fields fields_;
};

class ScriptedHidEventSystem::Client final : public HidEventSystemClient {
public:
    explicit Client(std::shared_ptr<Script> script) : script_(std::move(script)) {
        const std::lock_guard lock(script_->mutex);
        script_->clients.push_back(this);
    }
    ~Client() override {
        const std::lock_guard lock(script_->mutex);
        std::erase(script_->clients, this);
    }
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void setMatching(const HidMatching& matching) override {
        const std::lock_guard lock(script_->mutex);
        script_->calls.emplace_back("setMatching");
        script_->matchings.push_back(matching);
    }
    std::vector<std::shared_ptr<HidServiceClient>> copyServices() override {
        const std::lock_guard lock(script_->mutex);
        script_->calls.emplace_back("copyServices");
        return {script_->services.begin(), script_->services.end()};
    }
    void scheduleWithRunLoop(RunLoop& runLoop) override {
        const std::lock_guard lock(script_->mutex);
        script_->calls.emplace_back("schedule");
        runLoop_ = &runLoop;
    }
    void unscheduleFromRunLoop(RunLoop& runLoop) override {
        const std::lock_guard lock(script_->mutex);
        script_->calls.emplace_back("unschedule");
        if (runLoop_ == &runLoop) runLoop_ = nullptr;
    }
    void registerEventCallback(HidEventCallback callback, void* target, void* refcon) override {
        const std::lock_guard lock(script_->mutex);
        script_->calls.emplace_back("register");
        callback_ = callback;
        target_ = target;
        refcon_ = refcon;
    }
    void unregisterEventCallback() override {
        const std::lock_guard lock(script_->mutex);
        script_->calls.emplace_back("unregister");
        callback_ = nullptr;
    }

    [[nodiscard]] bool isDelivering() const { return runLoop_ != nullptr && callback_ != nullptr; }
    void deliver(Service& sender, HidEvent& event) const { callback_(target_, refcon_, &sender, &event); }

private:
    std::shared_ptr<Script> script_;
    RunLoop* runLoop_ = nullptr;
    HidEventCallback callback_ = nullptr;
    void* target_ = nullptr;
    void* refcon_ = nullptr;
};

ScriptedHidEventSystem::ScriptedHidEventSystem(std::size_t services) : script_(std::make_shared<Script>()) {
    for (std::size_t place = 0; place < services; ++place)
        script_->services.push_back(std::make_shared<Service>(script_, place));
}

ScriptedHidEventSystem::~ScriptedHidEventSystem() = default;

std::unique_ptr<HidEventSystemClient> ScriptedHidEventSystem::createClient() {
    return std::make_unique<Client>(script_);
}

void ScriptedHidEventSystem::emit(std::intptr_t lux, double channel0, double channel1, double channel2,
                                  double channel3) {
    Event event(lux, {{ambientLightLevelField, static_cast<double>(lux)},
                      {ambientLightChannel0Field, channel0},
                      {ambientLightChannel0Field + 1, channel1},
                      {ambientLightChannel0Field + 2, channel2},
                      {ambientLightChannel0Field + 3, channel3}});
    deliver(event, 0);
}

void ScriptedHidEventSystem::emit(HidEventType type, const Fields& fields, std::size_t service) {
    Event event(type, fields);
    deliver(event, service);
}

void ScriptedHidEventSystem::deliver(HidEvent& event, std::size_t service) {
    const std::lock_guard lock(script_->mutex);
    const auto sender = script_->services.at(service);
    // A callback may destroy clients.
    const auto clients = script_->clients;
    for (const Client* client : clients)
        if (std::ranges::find(script_->clients, client) != script_->clients.end() && client->isDelivering())
            client->deliver(*sender, event);
}

std::size_t ScriptedHidEventSystem::clientCount() const {
    const std::lock_guard lock(script_->mutex);
    return script_->clients.size();
}

std::size_t ScriptedHidEventSystem::deliveringCount() const {
    const std::lock_guard lock(script_->mutex);
    return static_cast<std::size_t>(std::ranges::count_if(script_->clients, &Client::isDelivering));
}

const std::vector<HidMatching>& ScriptedHidEventSystem::matchings() const {
    return script_->matchings;
}
const std::vector<ScriptedHidEventSystem::PropertySet>& ScriptedHidEventSystem::propertiesSet() const {
    return script_->propertiesSet;
}
const std::vector<std::string>& ScriptedHidEventSystem::calls() const {
    return script_->calls;
}

}  // namespace tarvex::testing
