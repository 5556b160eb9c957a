#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "tarvex/export.h"

namespace tarvex::platform {

class RunLoop;

using HidEventType = std::uint32_t;   ///< the kind of device that reports: `ambientLightSensorEvent`
using HidEventField = std::uint32_t;  ///< one value of an event: `ambientLightLevelField`, a channel

/// The type of an ambient light event.
inline constexpr HidEventType ambientLightSensorEvent = 12;
/// The light level: an integer. Fields are numbered from their event's type, shifted left by 16 bits.
inline constexpr HidEventField ambientLightLevelField = ambientLightSensorEvent << 16;
/// The first of four raw channels: floats.
inline constexpr HidEventField ambientLightChannel0Field = ambientLightLevelField + 1;

/// One report of a service; valid during the callback that receives it. Reentrant.
class TARVEX_EXPORT HidEvent {
public:
    virtual ~HidEvent() = default;
    virtual HidEventType type() const = 0;
    virtual std::intptr_t integerValue(HidEventField field) const = 0;  ///< 0 for a field that the event lacks
    virtual double floatValue(HidEventField field) const = 0;           ///< 0 for a field that the event lacks
};

/// One device that reports events. Thread-safe.
class TARVEX_EXPORT HidServiceClient {
public:
    virtual ~HidServiceClient() = default;

    /// Sets a property; false when the service does not know it. "ReportInterval" is in microseconds; one that the
    /// device cannot keep is limited.
    virtual bool setProperty(std::string_view key, std::int32_t value) = 0;
};

/// Receives an event on the run loop that the client is scheduled with. `target` and `refcon` are those of the
/// registration; `sender` and `event` are valid until it returns.
using HidEventCallback = void (*)(void* target, void* refcon, HidServiceClient* sender, HidEvent* event);

/// The services that a client wants, by the usage that their devices declare: ambient light is 4 of the page 0xFF00.
struct HidMatching {
    std::int32_t primaryUsagePage = 0;
    std::int32_t primaryUsage = 0;

    friend bool operator==(const HidMatching&, const HidMatching&) = default;
};

/// A client of the event system. Thread-safe: the library uses it on any thread that starts or stops tracking, while
/// the run loop delivers events.
///
/// Unregistering, unscheduling and releasing end its events: no callback begins after they return, and one that runs on
/// another thread has ended. A callback may do so itself.
class TARVEX_EXPORT HidEventSystemClient {
public:
    virtual ~HidEventSystemClient() = default;

    /// The client now sees only the services that match.
    virtual void setMatching(const HidMatching& matching) = 0;

    /// The services that the client sees. They stay usable after the client is gone.
    virtual std::vector<std::shared_ptr<HidServiceClient>> copyServices() = 0;

    /// Events are delivered on `runLoop`, between scheduling and unscheduling, to the registered callback: once on
    /// registration, then once per report interval.
    virtual void scheduleWithRunLoop(RunLoop& runLoop) = 0;
    virtual void unscheduleFromRunLoop(RunLoop& runLoop) = 0;
    virtual void registerEventCallback(HidEventCallback callback, void* target, void* refcon) = 0;
    virtual void unregisterEventCallback() = 0;
};

/// The sensors of the machine. Thread-safe; outlives its clients.
class TARVEX_EXPORT HidEventSystem {
public:
    virtual ~HidEventSystem() = default;

    /// A client that sees every present service, until `HidEventSystemClient::setMatching`.
    [[nodiscard]] virtual std::unique_ptr<HidEventSystemClient> createClient() = 0;
};

}  // namespace tarvex::platform
