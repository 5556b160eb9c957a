#pragma once

#include <tarvex/testing/manual_clock.h>
#include <tarvex/testing/manual_dispatch_queues.h>
#include <tarvex/testing/manual_timer_scheduler.h>
#include <tarvex/testing/scripted_capture_device.h>
#include <tarvex/testing/scripted_face_tracking.h>
#include <tarvex/testing/scripted_light_sensor.h>

#include <filesystem>

#include "daily_life.h"

namespace simulated_study {

/// The device that a participant's host runs on: its clock, light sensor and camera are doubles; the store of samples,
/// the user defaults and the transport are the library's own. The platform of this process: make one. Thread-bound.
class SimulatedDevice {
public:
    /// Posts go to the collector that `collectorDirectory` describes. Throws where its files cannot be read, or when
    /// something has used the library before.
    SimulatedDevice(const std::filesystem::path& dataDirectory, const std::filesystem::path& collectorDirectory);

    /// The user allows the camera.
    void allowCamera();

    /// What the clock shows from now on, in seconds since 1970.
    void setClock(double seconds);

    /// The sensor reports.
    void show(const Light& light);

    /// Lets timers tick as if `seconds` had passed, without moving the clock.
    void pass(double seconds);

    /// Whether the library is measuring a distance.
    bool isMeasuring() const;

    /// The camera sees a face.
    void show(const Eyes& eyes);

    /// Ends a measurement that has begun, as the library does three seconds after its beginning.
    void endMeasurement();

private:
    std::shared_ptr<tarvex::testing::ScriptedSceneView> measuringView() const;

    // Owned by the platform.
    tarvex::testing::ManualClock* clock_;
    tarvex::testing::ManualTimerScheduler* timers_;
    tarvex::testing::ManualDispatchQueues* queues_;
    tarvex::testing::ScriptedHidEventSystem* sensors_;
    tarvex::testing::ScriptedFaceTracking* faces_;
    tarvex::testing::ScriptedCaptureDevice* permission_;
};

}  // namespace simulated_study
