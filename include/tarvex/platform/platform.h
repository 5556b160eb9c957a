#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tarvex/export.h"
#include "tarvex/platform/application.h"
#include "tarvex/platform/bundle.h"
#include "tarvex/platform/capture_device.h"
#include "tarvex/platform/clock.h"
#include "tarvex/platform/dispatch.h"
#include "tarvex/platform/face_tracking.h"
#include "tarvex/platform/hid_event_system.h"
#include "tarvex/platform/notification_center.h"
#include "tarvex/platform/object_store.h"
#include "tarvex/platform/run_loop.h"
#include "tarvex/platform/timer.h"
#include "tarvex/platform/url_session.h"
#include "tarvex/platform/user_defaults.h"

namespace tarvex::platform {

/// Replaces the choices of `Platform::makeLinux`; a relative path is made absolute at once.
struct LinuxOptions {
    /// The directory of the samples and the user defaults; default: the XDG data home's folder that the host's bundle
    /// names.
    std::optional<std::filesystem::path> dataDirectory = std::nullopt;

    /// The directory of Info.plist; default: the directory of the executable, else ../share/<executable's name>/ beside
    /// it.
    std::optional<std::filesystem::path> bundleDirectory = std::nullopt;

    /// The tree of the light sensors; default: the kernel's, /sys/bus/iio/devices.
    std::optional<std::filesystem::path> sensorRoot = std::nullopt;

    // What a host says of itself where its Info.plist does not, or where it has none: one that an interpreter runs must
    // name itself, or it shares the participant's consent, identifier and samples with every other one that the same
    // interpreter runs. A list that can be read wins; texts that are not UTF-8 are left out.

    /// "CFBundleIdentifier": names the host in the upload, and its data directory.
    std::optional<std::string> bundleIdentifier = std::nullopt;

    /// "CFBundleDisplayName": the host's name on the consent screen.
    std::optional<std::string> applicationName = std::nullopt;

    /// "NSCameraUsageDescription": its presence, with any value, lets the distance reader start.
    std::optional<std::string> cameraUsageDescription = std::nullopt;
};

/// The services that the library is built on: a host, a test or another system may replace each.
///
/// A host that uses Linux as it is does not need this class. One that brings a service of its own makes a platform,
/// sets the service, and installs it before anything uses the library:
///
///     auto platform = Platform::makeLinux();
///     platform->setUrlSession(std::make_unique<MyUrlSession>());
///     const bool installed = Platform::install(std::move(platform));  // false: the library was used before
///
/// The services are owned by the platform and live as long as the process once it is installed. Those that `makeLinux`
/// built on one another stay so: its dispatch queues use its own main loop and its data directory its own bundles, also
/// when these are replaced. Accessors are thread-safe; everything else is reentrant, and done before the platform is
/// used.
class TARVEX_EXPORT Platform {
public:
    /// The services of Linux, for `install`. Nothing is opened or written before one of them is used. Thread-safe.
    static std::unique_ptr<Platform> makeLinux(LinuxOptions options = {});

    /// The platform of the process: the installed one, else `makeLinux()`. Thread-safe.
    static Platform& current();

    /// Makes `platform` the current one; false, and nothing changed, once any service of the current one was used.
    /// Thread-safe.
    [[nodiscard]] static bool install(std::unique_ptr<Platform> platform);

    Platform() = default;
    ~Platform();
    Platform(const Platform&) = delete;
    Platform& operator=(const Platform&) = delete;

    UserDefaults& userDefaults() { return use(userDefaults_); }
    NotificationCenter& notificationCenter() {
        used_.store(true, std::memory_order_relaxed);
        return notificationCenter_;
    }
    RunLoop& mainRunLoop() { return use(mainRunLoop_); }
    TimerScheduler& timerScheduler() { return use(timerScheduler_); }
    DispatchQueues& dispatchQueues() { return use(dispatchQueues_); }
    Bundles& bundles() { return use(bundles_); }
    UrlSession& urlSession() { return use(urlSession_); }
    HidEventSystem& hidEventSystem() { return use(hidEventSystem_); }
    ObjectStore& objectStore() { return use(objectStore_); }
    Clock& clock() { return use(clock_); }
    FaceTracking& faceTracking() { return use(faceTracking_); }
    Application& application() { return use(application_); }
    CaptureDevice& captureDevice() { return use(captureDevice_); }

    void setUserDefaults(std::unique_ptr<UserDefaults> service) { replace(userDefaults_, std::move(service)); }
    void setMainRunLoop(std::unique_ptr<RunLoop> service) { replace(mainRunLoop_, std::move(service)); }
    void setTimerScheduler(std::unique_ptr<TimerScheduler> service) { replace(timerScheduler_, std::move(service)); }
    void setDispatchQueues(std::unique_ptr<DispatchQueues> service) { replace(dispatchQueues_, std::move(service)); }
    void setBundles(std::unique_ptr<Bundles> service) { replace(bundles_, std::move(service)); }
    void setUrlSession(std::unique_ptr<UrlSession> service) { replace(urlSession_, std::move(service)); }
    void setHidEventSystem(std::unique_ptr<HidEventSystem> service) { replace(hidEventSystem_, std::move(service)); }
    void setObjectStore(std::unique_ptr<ObjectStore> service) { replace(objectStore_, std::move(service)); }
    void setClock(std::unique_ptr<Clock> service) { replace(clock_, std::move(service)); }
    void setFaceTracking(std::unique_ptr<FaceTracking> service) { replace(faceTracking_, std::move(service)); }
    void setApplication(std::unique_ptr<Application> service) { replace(application_, std::move(service)); }
    void setCaptureDevice(std::unique_ptr<CaptureDevice> service) { replace(captureDevice_, std::move(service)); }

    /// Keeps what `make` returns under `name` as long as this platform: it ends before the services, which it may use
    /// until then. False, without a call of `make`, when something is kept under that name already. For modules.
    bool keep(std::string_view name, const std::function<std::shared_ptr<void>()>& make) {
        return !kept_.contains(name) && kept_.emplace(name, make()).second;
    }

private:
    template <typename Service>
    Service& use(const std::unique_ptr<Service>& service) {
        used_.store(true, std::memory_order_relaxed);
        return *service;
    }

    // A replaced service stays alive: another one may have been built on it.
    template <typename Service>
    void replace(std::unique_ptr<Service>& slot, std::unique_ptr<Service> service) {
        if (slot) replaced_.push_back(std::shared_ptr<Service>(std::move(slot)));
        slot = std::move(service);
    }

    std::atomic<bool> used_ = false;
    std::vector<std::shared_ptr<void>> replaced_;

    std::unique_ptr<UserDefaults> userDefaults_;
    NotificationCenter notificationCenter_;
    std::unique_ptr<RunLoop> mainRunLoop_;
    std::unique_ptr<TimerScheduler> timerScheduler_;
    std::unique_ptr<DispatchQueues> dispatchQueues_;
    std::unique_ptr<Bundles> bundles_;
    std::unique_ptr<UrlSession> urlSession_;
    std::unique_ptr<HidEventSystem> hidEventSystem_;
    std::unique_ptr<ObjectStore> objectStore_;
    std::unique_ptr<Clock> clock_;
    std::unique_ptr<Application> application_;
    std::unique_ptr<CaptureDevice> captureDevice_;
    std::map<std::string, std::shared_ptr<void>, std::less<>> kept_;  // uses the services above until its end
    // Last, so that it ends first: its thread uses all others until then.
    std::unique_ptr<FaceTracking> faceTracking_;
};

}  // namespace tarvex::platform
