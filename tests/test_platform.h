#pragma once

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
        auto made = platform::Platform::makeLinux(
            {.dataDirectory = directory.path() / "data", .bundleDirectory = directory.path() / "bundle"});
        std::filesystem::create_directory(directory.path() / "bundle");
        own(*made, &platform::Platform::setDispatchQueues, dispatchQueues);
        own(*made, &platform::Platform::setTimerScheduler, timers);
        own(*made, &platform::Platform::setUserDefaults, defaults);
        own(*made, &platform::Platform::setUrlSession, backend);
        own(*made, &platform::Platform::setHidEventSystem, sensor);
        own(*made, &platform::Platform::setClock, clock);
        if (!platform::Platform::install(std::move(made)))
            throw std::logic_error("a process has one current platform: one TestPlatform to a test");
    }

    platform::Platform& operator*() const { return platform::Platform::current(); }
    platform::Platform* operator->() const { return &platform::Platform::current(); }

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

private:
    template <typename Service, typename Double>
    static void own(platform::Platform& platform, void (platform::Platform::*set)(std::unique_ptr<Service>),
                    Double*& handle) {
        auto made = std::make_unique<Double>();
        handle = made.get();
        (platform.*set)(std::move(made));
    }
};

/// What an upload would carry now.
inline TrackingDataWrapper documentOf(PersistenceController& store) {
    const auto encoded = store.loadTrackingData();
    return decodeTrackingDataWrapper(encoded.value().view(), platform::Platform::current().jsonCoder()).value();
}

}  // namespace tarvex::test
