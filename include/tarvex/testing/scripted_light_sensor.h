#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tarvex/platform/hid_event_system.h"

namespace tarvex::testing {

/// An event system with light sensors whose events a test emits. Thread-safe; the lists of calls (`matchings`,
/// `propertiesSet`, `calls`) are references and must not be read while another thread uses a client.
///
/// Events are delivered before `emit` returns, to every client that is scheduled and registered; there are no others,
/// also not on registration.
class TARVEX_EXPORT ScriptedHidEventSystem final : public platform::HidEventSystem {
public:
    /// One call of `HidServiceClient::setProperty`.
    struct PropertySet {
        std::size_t service;  ///< the sensor's place in the list
        std::string key;
        std::int32_t value;
        friend bool operator==(const PropertySet&, const PropertySet&) = default;
    };
    using Fields = std::map<platform::HidEventField, double>;

    explicit ScriptedHidEventSystem(std::size_t services = 1);
    ~ScriptedHidEventSystem() override;

    [[nodiscard]] std::unique_ptr<platform::HidEventSystemClient> createClient() override;

    /// Reports an ambient light event from the first sensor.
    void emit(std::intptr_t lux, double channel0, double channel1, double channel2, double channel3);

    /// Reports any event from the sensor at `service`.
    void emit(platform::HidEventType type, const Fields& fields, std::size_t service = 0);

    [[nodiscard]] std::size_t clientCount() const;      ///< clients that are alive
    [[nodiscard]] std::size_t deliveringCount() const;  ///< those of them that are scheduled and registered

    /// Arguments of the clients' calls, in the order of the calls.
    [[nodiscard]] const std::vector<platform::HidMatching>& matchings() const;
    [[nodiscard]] const std::vector<PropertySet>& propertiesSet() const;

    /// Names of the clients' calls: "setMatching", "copyServices", "schedule", "unschedule",
    /// "register", "unregister".
    [[nodiscard]] const std::vector<std::string>& calls() const;

private:
    struct Script;
    class Client;
    class Service;
    class Event;

    void deliver(platform::HidEvent& event, std::size_t service);

    std::shared_ptr<Script> script_;
};

}  // namespace tarvex::testing
