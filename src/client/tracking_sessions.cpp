#include "client/tracking_sessions.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <limits>
#include <unordered_set>
#include <utility>

#include "client/consent_key.h"
#include "client/host_callback.h"
#include "tarvex/ambient_light_sensor.h"

namespace tarvex {

namespace {

const DataReader distanceKey = DataReader::distance(std::nullopt);
const DataReader ambientLightKey = DataReader::ambientLight(std::nullopt);

void fail(const Client::StartCompletion& completion, TarvexError error, const DataReader& kindKey) {
    callHost(completion, std::unexpected(std::move(error)), kindKey);
}

// Rates past the 32-bit range of the sensor's interval are limited to it.
std::int32_t reportIntervalInMilliseconds(std::int64_t refreshRate) {
    constexpr std::int64_t limit = std::numeric_limits<std::int32_t>::max() / 1000;
    return static_cast<std::int32_t>(std::clamp(refreshRate, -limit, limit) * 1000);
}

}  // namespace

TrackingSessions::TrackingSessions(platform::Platform& platform, PersistenceController& store)
    : platform_(platform), store_(store) {}

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
    if (!hasConsented(distanceKey)) return fail(completion, TarvexError::noConsentToTrack(), distanceKey);
    if (!refreshRate) return fail(completion, TarvexError::noRefreshRate(), distanceKey);
    if (!view) return fail(completion, TarvexError::noViewToAttachForDistanceTracking(), distanceKey);
    if (!faceTrackingIsAvailable()) return fail(completion, TarvexError::distanceTrackingIsNotAvailable(), distanceKey);

    distanceTracking_ = DistanceTracking::make(platform_, store_);
    scheduleTicks(distanceKey, *refreshRate, [view](TrackingSessions& sessions) {
        if (sessions.distanceTracking_) sessions.distanceTracking_->beginMeasurement(view);
    });
}

void TrackingSessions::startAmbientLightTracking(std::optional<std::int64_t> refreshRate,
                                                 const Client::StartCompletion& completion) {
    if (isInProgress(ambientLightKey)) return;
    if (!hasConsented(ambientLightKey)) return fail(completion, TarvexError::noConsentToTrack(), ambientLightKey);
    if (!refreshRate) return fail(completion, TarvexError::noRefreshRate(), ambientLightKey);

    auto tracking = std::make_unique<AmbientLightTracking>(store_);
    TXAmbientLightSensor::init_iokit(reportIntervalInMilliseconds(*refreshRate));
    TXAmbientLightSensor::start_iokit();
    ambientLightTracking_ = std::move(tracking);
    scheduleTicks(ambientLightKey, *refreshRate, [](TrackingSessions& sessions) {
        if (sessions.ambientLightTracking_) sessions.ambientLightTracking_->recordSample();
    });
}

void TrackingSessions::scheduleTicks(const DataReader& kindKey, std::int64_t refreshRate,
                                     std::function<void(TrackingSessions&)> tick) {
    timers_[kindKey] = platform_.timerScheduler().scheduledTimer(static_cast<double>(refreshRate),
                                                                 [weakSelf = weak_from_this(), tick = std::move(tick)] {
                                                                     if (const auto self = weakSelf.lock()) tick(*self);
                                                                 });
    trackingInProgress_[kindKey] = true;
}

void TrackingSessions::stop(const DataReader& reader) {
    if (const auto timer = timers_.find(reader.kindKey()); timer != timers_.end()) {
        timer->second->invalidate();
        if (reader.kind() == DataReader::Kind::distance)
            distanceTracking_.reset();
        else
            ambientLightTracking_.reset();
    }
    trackingInProgress_[reader.kindKey()] = false;
}

void TrackingSessions::stopAll() {
    for (const auto& [kindKey, timer] : timers_)
        timer->invalidate();
    distanceTracking_.reset();
    ambientLightTracking_.reset();
    trackingInProgress_.clear();
}

bool TrackingSessions::isInProgress(const DataReader& kindKey) const {
    const auto entry = trackingInProgress_.find(kindKey);
    return entry != trackingInProgress_.end() && entry->second;
}

bool TrackingSessions::hasConsented(const DataReader& kindKey) const {
    return platform_.userDefaults().boolForKey(consentKey(kindKey.kind()));
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
