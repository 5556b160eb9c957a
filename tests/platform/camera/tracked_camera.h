#pragma once

#include "prelude.h"
#include "storage/persistence_controller.h"
#include "storage/tracking_data.h"
#include "tarvex/camera.h"
#include "tarvex/testing/manual_dispatch_queues.h"

namespace tarvex::test {

/// The library as it is on Linux, with a camera of these options. No run is ended by the time that it takes.
struct Tracked {
    explicit Tracked(camera::Options options) {
        platform = platform::Platform::makeLinux({.dataDirectory = directory.path() / "data"});
        auto manual = std::make_unique<testing::ManualDispatchQueues>();
        queues = manual.get();
        platform->setDispatchQueues(std::move(manual));
        camera::addTo(*platform, std::move(options));
        store = std::make_unique<PersistenceController>(*platform);
    }
    // Blocks in the queues refer to the platform's services.
    ~Tracked() {
        if (!platform) return;
        queues->runMain();
        queues->advance(std::chrono::hours(1));
    }
    Tracked(const Tracked&) = delete;
    Tracked& operator=(const Tracked&) = delete;

    std::vector<TrackingData> samples() const {
        const auto document = store->loadTrackingData([] { return Sender(); });
        return decodeTrackingDataWrapper(document.value().view())->trackingData;
    }

    TemporaryDirectory directory;
    testing::ManualDispatchQueues* queues = nullptr;
    std::unique_ptr<platform::Platform> platform;
    std::unique_ptr<PersistenceController> store;
};

}  // namespace tarvex::test
