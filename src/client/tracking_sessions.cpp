#include "client/tracking_sessions.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <unordered_set>
#include <utility>

#include "consent/consent.h"
#include "tarvex/ambient_light_sensor.h"
#include "tarvex/platform/diagnostics.h"
#include "values/host_boundary.h"

namespace tarvex {

namespace {

using Kind = DataReader::Kind;

const DataReader distanceKey = DataReader::distance(std::nullopt);
const DataReader ambientLightKey = DataReader::ambientLight(std::nullopt);

void fail(const Client::StartCompletion& completion, TarvexError error, const DataReader& kindKey) {
    callHost(completion, std::unexpected(std::move(error)), kindKey);
}

// Limits rates to the 32-bit range of the sensor's interval.
std::int32_t reportIntervalInMilliseconds(std::int64_t refreshRate) {
    constexpr std::int64_t limit = std::numeric_limits<std::int32_t>::max() / 1000;
    return static_cast<std::int32_t>(std::clamp(refreshRate, -limit, limit) * 1000);
}

// Each run is paused 3 s after its start, also when it has ended by then: the pause may end a run that began meanwhile.
void warnOfLostRuns(std::int64_t refreshRate) {
    const std::int64_t seconds = std::max<std::int64_t>(refreshRate, 1);
    if (seconds != 1 && seconds != 3) return;
    platform::logWarning("distances at a rate of " + std::to_string(seconds) +
                         " s lose samples: the pause 3 s after a tick ends a later tick's run; choose 4 s or more");
}

}  // namespace

TrackingSessions::TrackingSessions(platform::Platform& platform, PersistenceController& store)
    : platform_(platform), store_(store) {}

std::unordered_map<DataReader, bool> TrackingSessions::trackingInProgress() const {
    const std::lock_guard lock(mutex_);
    return trackingInProgress_;
}

void TrackingSessions::start(const std::vector<DataReader>& readers, const std::shared_ptr<View>& view,
                             const Client::StartCompletion& completion) {
    const std::unordered_set<DataReader> distinctReaders(readers.begin(), readers.end());
    for (const DataReader& reader : distinctReaders) {
        if (reader.kind() == DataReader::Kind::distance)
            startDistanceTracking(reader.refreshRate(), view, completion);
        else
            startAmbientLightTracking(reader.refreshRate(), completion);
    }
    callHost(completion, Client::Result(), std::nullopt);
}

void TrackingSessions::startDistanceTracking(std::optional<std::int64_t> refreshRate, const std::shared_ptr<View>& view,
                                             const Client::StartCompletion& completion) {
    constexpr std::string_view cameraUsage = "NSCameraUsageDescription";
    if (isInProgress(distanceKey)) return;
    if (!infoPlistContains(cameraUsage))
        return fail(completion, TarvexError::usageDescription(std::string(cameraUsage)), distanceKey);
    if (!hasConsented(platform_.userDefaults(), Kind::distance))
        return fail(completion, TarvexError::noConsentToTrack(), distanceKey);
    if (!refreshRate) return fail(completion, TarvexError::noRefreshRate(), distanceKey);
    if (!view) return fail(completion, TarvexError::noViewToAttachForDistanceTracking(), distanceKey);
    if (!faceTrackingIsAvailable()) return fail(completion, TarvexError::distanceTrackingIsNotAvailable(), distanceKey);

    {
        const std::lock_guard lock(mutex_);
        if (isMarkedInProgress(distanceKey)) return;  // started meanwhile
        distanceTracking_ = DistanceTracking::make(platform_, store_);
        scheduleTicks(distanceKey, *refreshRate, [view](TrackingSessions& sessions, SessionNumber session) {
            sessions.measureDistance(session, view);
        });
    }
    warnOfLostRuns(*refreshRate);
}

void TrackingSessions::startAmbientLightTracking(std::optional<std::int64_t> refreshRate,
                                                 const Client::StartCompletion& completion) {
    if (isInProgress(ambientLightKey)) return;
    if (!hasConsented(platform_.userDefaults(), Kind::ambientLight))
        return fail(completion, TarvexError::noConsentToTrack(), ambientLightKey);
    if (!refreshRate) return fail(completion, TarvexError::noRefreshRate(), ambientLightKey);

    const std::lock_guard lock(mutex_);
    if (isMarkedInProgress(ambientLightKey)) return;  // started meanwhile
    auto tracking = std::make_unique<AmbientLightTracking>(store_);
    TXAmbientLightSensor::init_iokit(reportIntervalInMilliseconds(*refreshRate));
    TXAmbientLightSensor::start_iokit();
    ambientLightTracking_ = std::move(tracking);
    scheduleTicks(ambientLightKey, *refreshRate,
                  [](TrackingSessions& sessions, SessionNumber session) { sessions.recordLight(session); });
}

void TrackingSessions::measureDistance(SessionNumber session, const std::shared_ptr<View>& view) {
    std::shared_ptr<DistanceTracking> tracking;
    {
        const std::lock_guard lock(mutex_);
        if (ticks_.at(distanceKey).session == session) tracking = distanceTracking_;
    }
    if (tracking) tracking->beginMeasurement(view);
}

void TrackingSessions::recordLight(SessionNumber session) {
    // Held while the tracker works: were this its last reference, its end would stop the next session's sensor.
    const std::lock_guard lock(mutex_);
    if (ticks_.at(ambientLightKey).session == session && ambientLightTracking_) ambientLightTracking_->recordSample();
}

void TrackingSessions::scheduleTicks(const DataReader& kindKey, std::int64_t refreshRate,
                                     std::function<void(TrackingSessions&, SessionNumber)> tick) {
    const SessionNumber session = ++sessionCount_;
    ticks_[kindKey] = {
        .session = session,
        .timer = platform_.timerScheduler().scheduledTimer(
            static_cast<double>(refreshRate), [weakSelf = weak_from_this(), session, tick = std::move(tick)] {
                if (const auto self = weakSelf.lock()) tick(*self, session);
            })};
    trackingInProgress_[kindKey] = true;
}

void TrackingSessions::stop(const DataReader& reader) {
    {
        const std::lock_guard lock(mutex_);
        if (const auto ticks = ticks_.find(reader.kindKey()); ticks != ticks_.end()) {
            ticks->second.timer->invalidate();
            if (reader.kind() == DataReader::Kind::distance)
                distanceTracking_.reset();
            else
                ambientLightTracking_.reset();
        }
        trackingInProgress_[reader.kindKey()] = false;
    }
    store_.savePending();  // no tick of this session will
}

void TrackingSessions::stopAll() {
    {
        const std::lock_guard lock(mutex_);
        for (const auto& [kindKey, ticks] : ticks_)
            ticks.timer->invalidate();
        distanceTracking_.reset();
        ambientLightTracking_.reset();
        trackingInProgress_.clear();
    }
    store_.savePending();
}

bool TrackingSessions::isMarkedInProgress(const DataReader& kindKey) const {
    const auto entry = trackingInProgress_.find(kindKey);
    return entry != trackingInProgress_.end() && entry->second;
}

bool TrackingSessions::isInProgress(const DataReader& kindKey) const {
    const std::lock_guard lock(mutex_);
    return isMarkedInProgress(kindKey);
}

bool TrackingSessions::infoPlistContains(std::string_view key) const {
    const auto path = platform_.bundles().mainBundle().pathForResource("Info", "plist");
    if (!path) return false;
    const auto infoPlist = platform_.bundles().dictionaryWithContentsOfFile(*path);
    return infoPlist && infoPlist->contains(key);
}

bool TrackingSessions::faceTrackingIsAvailable() const {
    const platform::FaceTracking& faceTracking = platform_.faceTracking();
    return faceTracking.isSupported() && faceTracking.supportedNumberOfTrackedFaces() >= 1;
}

}  // namespace tarvex
