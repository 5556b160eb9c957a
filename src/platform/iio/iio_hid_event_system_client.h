#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/iio/light_sensor_reporter.h"
#include "tarvex/platform/hid_event_system.h"

namespace tarvex::platform {

class IioHidService;

/// A client that sees the light sensors which the kernel's tree holds when the client is made.
///
/// One of them that goes away and comes back under its name reports again; one that is new is for the next client.
/// While the client is scheduled and registered, each sensor is read on a thread of its own; otherwise none runs.
/// Thread-safe.
class IioHidEventSystemClient final : public HidEventSystemClient {
public:
    /// Sees every sensor under `root` until `setMatching`.
    explicit IioHidEventSystemClient(const std::filesystem::path& root);
    ~IioHidEventSystemClient() override;

    IioHidEventSystemClient(const IioHidEventSystemClient&) = delete;
    IioHidEventSystemClient& operator=(const IioHidEventSystemClient&) = delete;

    /// Ambient light sensors are usage 4 of the vendor-defined page 0xFF00; there are no other services.
    void setMatching(const HidMatching& matching) override;

    /// In the order of the devices' numbers.
    std::vector<std::shared_ptr<HidServiceClient>> copyServices() override;

    /// A client has one run loop: the one it was scheduled with last.
    void scheduleWithRunLoop(RunLoop& runLoop) override;
    void unscheduleFromRunLoop(RunLoop& runLoop) override;
    void registerEventCallback(HidEventCallback callback, void* target, void* refcon) override;
    void unregisterEventCallback() override;

private:
    using Reporters = std::vector<std::unique_ptr<LightSensorReporter>>;

    /// Makes the change, and reporters for what is then true; none of either when `change` returns false.
    void restartReporters(const std::function<bool()>& change);
    Reporters makeReporters() const;

    std::mutex mutex_;
    std::vector<std::shared_ptr<IioHidService>> lightSensors_;
    std::vector<std::shared_ptr<IioHidService>> services_;  // those of them that match
    RunLoop* runLoop_ = nullptr;
    HidEventCallback callback_ = nullptr;
    void* target_ = nullptr;
    void* refcon_ = nullptr;
    Reporters reporters_;
};

}  // namespace tarvex::platform
