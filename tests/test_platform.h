#pragma once

#include "client/sender.h"
#include "prelude.h"
#include "storage/persistence_controller.h"
#include "storage/tracking_data.h"
#include "tarvex/platform/platform.h"
#include "tarvex/testing/manual_clock.h"
#include "tarvex/testing/manual_dispatch_queues.h"
#include "tarvex/testing/manual_timer_scheduler.h"
#include "tarvex/testing/memory_user_defaults.h"
#include "tarvex/testing/recording_url_session.h"
#include "tarvex/testing/scripted_light_sensor.h"

namespace tarvex::test {

/// The current platform of a test: a real store in a directory of its own, and time, network, sensor and defaults in
/// the test's hands.
class TestPlatform {
public:
    TestPlatform() {
        std::filesystem::create_directory(directory.path() / "bundle");
        if (!platform::Platform::install(platform::Platform::makeLinux(
                {.dataDirectory = directory.path() / "data", .bundleDirectory = directory.path() / "bundle"})))
            throw std::logic_error("a process has one current platform: one TestPlatform to a test");
        set(&platform::Platform::setDispatchQueues, dispatchQueues);
        set(&platform::Platform::setTimerScheduler, timers);
        set(&platform::Platform::setUserDefaults, defaults);
        set(&platform::Platform::setUrlSession, backend);
        set(&platform::Platform::setHidEventSystem, sensor);
        set(&platform::Platform::setClock, clock);
    }

    platform::Platform& operator*() const { return platform::Platform::current(); }
    platform::Platform* operator->() const { return &platform::Platform::current(); }

    /// Puts a double, made from `arguments`, in the place of a service; `handle` then points to it.
    template <typename Service, typename Double, typename... Arguments>
    static void set(void (platform::Platform::*setter)(std::unique_ptr<Service>), Double*& handle,
                    Arguments... arguments) {
        auto made = std::make_unique<Double>(std::move(arguments)...);
        handle = made.get();
        (platform::Platform::current().*setter)(std::move(made));
    }

    /// The host's property list, read afresh at each use.
    void writeInfoPlist(const std::string& entries) const {
        writeFile(directory.path() / "bundle/Info.plist",
                  R"(<?xml version="1.0"?><plist version="1.0"><dict>)" + entries + "</dict></plist>");
    }

    TemporaryDirectory directory;
    testing::ManualDispatchQueues* dispatchQueues = nullptr;
    testing::ManualTimerScheduler* timers = nullptr;
    testing::MemoryUserDefaults* defaults = nullptr;
    testing::RecordingUrlSession* backend = nullptr;
    testing::ScriptedHidEventSystem* sensor = nullptr;
    testing::ManualClock* clock = nullptr;
};

/// The document that an upload would send now.
inline TrackingDataWrapper documentOf(PersistenceController& store) {
    const auto encoded = store.loadTrackingData([] { return sender(platform::Platform::current()); });
    return decodeTrackingDataWrapper(encoded.value().view()).value();
}

}  // namespace tarvex::test
