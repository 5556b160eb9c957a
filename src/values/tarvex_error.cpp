#include "tarvex/tarvex_error.h"

#include <utility>

namespace tarvex {

TarvexError::TarvexError(Code code, std::string payload) : code_(code), payload_(std::move(payload)) {}

TarvexError TarvexError::usageDescription(std::string key) {
    return TarvexError(Code::usageDescription, std::move(key));
}

TarvexError TarvexError::httpError(std::string cause) {
    return TarvexError(Code::httpError, std::move(cause));
}

TarvexError TarvexError::noConsentToTrack() {
    return TarvexError(Code::noConsentToTrack);
}

TarvexError TarvexError::noViewToAttachForDistanceTracking() {
    return TarvexError(Code::noViewToAttachForDistanceTracking);
}

TarvexError TarvexError::distanceTrackingIsNotAvailable() {
    return TarvexError(Code::distanceTrackingIsNotAvailable);
}

TarvexError TarvexError::lightTrackingIsNotAvailable() {
    return TarvexError(Code::lightTrackingIsNotAvailable);
}

TarvexError TarvexError::noRefreshRate() {
    return TarvexError(Code::noRefreshRate);
}

TarvexError TarvexError::cannotLoadTrackingData() {
    return TarvexError(Code::cannotLoadTrackingData);
}

std::optional<std::string> TarvexError::errorDescription() const {
    switch (code_) {
        case Code::usageDescription:
            return payload_ + " is not in the info.plist.";
        case Code::httpError:
            return "HTTPError: " + payload_;
        case Code::noConsentToTrack:
            return "The user has to consent to the tracking.";
        case Code::noViewToAttachForDistanceTracking:
            return "Distance tracking could not be started because there is no view to attach to.";
        case Code::distanceTrackingIsNotAvailable:
            return "Distance tracking is not available on this device.";
        case Code::lightTrackingIsNotAvailable:
            return "Light tracking is not available on this device.";
        case Code::noRefreshRate:
            return "Please select a refresh rate for the reader.";
        case Code::cannotLoadTrackingData:
            return "Cannot load the tracking data.";
    }
    std::unreachable();
}

std::optional<std::string> TarvexError::failureReason() const {
    return std::nullopt;
}

std::optional<std::string> TarvexError::recoverySuggestion() const {
    return std::nullopt;
}

std::optional<std::string> TarvexError::helpAnchor() const {
    return std::nullopt;
}

BridgedError TarvexError::bridged() const {
    return {.domain = "Tarvex.TarvexError",
            .code = static_cast<int>(code_),
            .localizedDescription = errorDescription().value_or("")};
}

}  // namespace tarvex
