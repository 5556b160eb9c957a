#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sensors/ambient_light_tracking.h"
#include "sensors/distance_tracking.h"
#include "storage/persistence_controller.h"
#include "tarvex/client.h"
#include "tarvex/platform/platform.h"

namespace tarvex {

/// The sampling sessions: for each kind of reader at most one tracker, and the timer whose ticks make it sample.
/// Thread-safe.
///
/// The checks of a start, face-tracking runs and the host's callback are outside the lock. The timers hold
/// this object weakly; owned by a shared pointer.
class TrackingSessions : public std::enable_shared_from_this<TrackingSessions> {
public:
    TrackingSessions(platform::Platform& platform, PersistenceController& store);

    /// Keys are kind keys; a stopped kind stays, with false. A copy.
    std::unordered_map<DataReader, bool> trackingInProgress() const;

    /// See `Client::startTracking`.
    void start(const std::vector<DataReader>& readers, const std::shared_ptr<View>& view,
               const Client::StartCompletion& completion);

    void stop(const DataReader& reader);
    void stopAll();

private:
    // A tick may have waited for the lock while another thread ended its session and began the next.
    using SessionNumber = std::uint64_t;
    struct Ticks {
        SessionNumber session;
        std::shared_ptr<platform::Timer> timer;
    };

    void startDistanceTracking(std::optional<std::int64_t> refreshRate, const std::shared_ptr<View>& view,
                               const Client::StartCompletion& completion);
    void startAmbientLightTracking(std::optional<std::int64_t> refreshRate, const Client::StartCompletion& completion);
    void measureDistance(SessionNumber session, const std::shared_ptr<View>& view);
    void recordLight(SessionNumber session);

    // With the lock held.
    void scheduleTicks(const DataReader& kindKey, std::int64_t refreshRate,
                       std::function<void(TrackingSessions&, SessionNumber)> tick);
    bool isMarkedInProgress(const DataReader& kindKey) const;

    bool isInProgress(const DataReader& kindKey) const;
    bool infoPlistContains(std::string_view key) const;
    bool faceTrackingIsAvailable() const;

    platform::Platform& platform_;
    PersistenceController& store_;
    mutable std::mutex mutex_;  // guards all below
    std::unordered_map<DataReader, bool> trackingInProgress_;
    std::shared_ptr<DistanceTracking> distanceTracking_;
    std::unique_ptr<AmbientLightTracking> ambientLightTracking_;
    SessionNumber sessionCount_ = 0;               // of all sessions ever
    std::unordered_map<DataReader, Ticks> ticks_;  // a stopped kind's stay, their timer invalidated
};

}  // namespace tarvex
