#include <chrono>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/curl/curl_url_session.h"
#include "platform/glib/dispatch_queues.h"
#include "platform/glib/gio_application.h"
#include "platform/glib/glib_run_loop.h"
#include "platform/glib/glib_timer_scheduler.h"
#include "platform/glib/text.h"
#include "platform/iio/iio_hid_event_system.h"
#include "platform/linux/data_directory.h"
#include "platform/plist/plist_bundles.h"
#include "platform/portable/no_face_tracking.h"
#include "platform/portal/portal_services.h"
#include "platform/portal/video_devices.h"
#include "platform/sqlite/sqlite_object_store.h"
#include "platform/sqlite/sqlite_user_defaults.h"
#include "tarvex/platform/platform.h"

namespace tarvex::platform {

namespace {

struct SystemClock final : Clock {
    double secondsSince1970() const override {
        return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    }
};

struct CurrentPlatform {
    std::mutex mutex;
    std::unique_ptr<Platform> platform;
    std::vector<std::unique_ptr<Platform>> replaced;  // someone may hold a reference
};

/// The entries of a property list that the host gives in code.
PropertyList::Entries informationIn(const LinuxOptions& options) {
    PropertyList::Entries information;
    for (const auto& [key, value] : {std::pair("CFBundleIdentifier", &options.bundleIdentifier),
                                     {"CFBundleDisplayName", &options.applicationName},
                                     {"NSCameraUsageDescription", &options.cameraUsageDescription}})
        if (*value && isUtf8(**value)) information.emplace(key, **value);
    return information;
}

// Never destroyed: threads of the services may outlive the end of main.
CurrentPlatform& currentPlatform() {
    static CurrentPlatform& current = *new CurrentPlatform;
    return current;
}

}  // namespace

std::unique_ptr<Platform> Platform::makeLinux(LinuxOptions options) {
    auto platform = std::make_unique<Platform>();

    auto information = informationIn(options);
    auto identifier = information.contains("CFBundleIdentifier") ? options.bundleIdentifier : std::nullopt;
    auto bundles = std::make_unique<PlistBundles>(std::move(options.bundleDirectory), std::move(information));
    auto directory = std::make_shared<DataDirectory>(std::move(options.dataDirectory), *bundles, std::move(identifier));
    const auto dataDirectory = [directory] { return directory->path(); };
    platform->setBundles(std::move(bundles));
    platform->setUserDefaults(std::make_unique<SqliteUserDefaults>(dataDirectory));
    platform->setObjectStore(std::make_unique<SqliteObjectStore>(dataDirectory));

    auto mainRunLoop = std::make_unique<GLibRunLoop>();
    auto queues = std::make_unique<LinuxDispatchQueues>(*mainRunLoop);
    platform->setCaptureDevice(
        std::make_unique<PortalCaptureDevice>(*mainRunLoop, [] { return mayUseCamera("/dev"); }));
    platform->setApplication(std::make_unique<PortalApplication>(*mainRunLoop, std::make_unique<GioApplication>()));
    platform->setMainRunLoop(std::move(mainRunLoop));
    platform->setDispatchQueues(std::move(queues));
    platform->setTimerScheduler(std::make_unique<GLibTimerScheduler>(
        [services = platform.get()] { warnUnlessMainLoopRuns(services->dispatchQueues(), std::chrono::seconds(10)); }));

    platform->setHidEventSystem(options.sensorRoot ? std::make_unique<IioHidEventSystem>(std::move(*options.sensorRoot))
                                                   : std::make_unique<IioHidEventSystem>());
    platform->setUrlSession(std::make_unique<CurlUrlSession>());

    platform->setClock(std::make_unique<SystemClock>());
    platform->setFaceTracking(std::make_unique<NoFaceTracking>());

    return platform;
}

Platform& Platform::current() {
    CurrentPlatform& current = currentPlatform();
    const std::lock_guard lock(current.mutex);
    if (!current.platform) current.platform = makeLinux();
    return *current.platform;
}

bool Platform::install(std::unique_ptr<Platform> platform) {
    CurrentPlatform& current = currentPlatform();
    const std::lock_guard lock(current.mutex);
    if (current.platform) {
        if (current.platform->used_) return false;
        current.replaced.push_back(std::move(current.platform));
    }
    current.platform = std::move(platform);
    return true;
}

Platform::~Platform() = default;

RunLoop& RunLoop::main() {
    return Platform::current().mainRunLoop();
}

}  // namespace tarvex::platform
