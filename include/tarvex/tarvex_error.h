#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tarvex/export.h"

namespace tarvex {

/// The platform's error object, for a log or for another language's binding. Reentrant.
struct TARVEX_EXPORT BridgedError {
    std::string domain;                ///< "Tarvex.TarvexError"
    int code;                          ///< 0 to 7, the case's place in `TarvexError::Code`
    std::string localizedDescription;  ///< the same text as `TarvexError::errorDescription`
};

/// Every failure that the library hands to a host, in the result given to a completion callback.
///
/// A plain value that owns its payload. Reentrant. Hosts distinguish the cases by `code()`; no order or equality is
/// defined.
class TARVEX_EXPORT TarvexError {
public:
    /// The cases, each explained at the function that makes it.
    enum class Code : int {
        usageDescription,
        httpError,
        noConsentToTrack,
        noViewToAttachForDistanceTracking,
        distanceTrackingIsNotAvailable,
        lightTrackingIsNotAvailable,
        noRefreshRate,
        cannotLoadTrackingData
    };

    /// The host's Info.plist lacks `key`, which the reader needs.
    static TarvexError usageDescription(std::string key);
    /// The upload failed; `cause` is readable text: the transport's own, or one of the library's fixed sentences.
    static TarvexError httpError(std::string cause);
    /// The reader's consent flag is not set.
    static TarvexError noConsentToTrack();
    /// The distance reader was started without a host view.
    static TarvexError noViewToAttachForDistanceTracking();
    /// No service of this system can track a face.
    static TarvexError distanceTrackingIsNotAvailable();
    /// Raised by no operation today; part of the interface all the same.
    static TarvexError lightTrackingIsNotAvailable();
    /// The reader carries no refresh rate.
    static TarvexError noRefreshRate();
    /// The stored records could not be read, or their document could not be built.
    static TarvexError cannotLoadTrackingData();

    /// The case; the numbers are fixed.
    Code code() const noexcept { return code_; }

    /// The key or the cause; empty where the case has none.
    const std::string& payload() const noexcept { return payload_; }

    /// The text meant for the user; present for every case.
    std::optional<std::string> errorDescription() const;
    std::optional<std::string> failureReason() const;       ///< always absent
    std::optional<std::string> recoverySuggestion() const;  ///< always absent
    std::optional<std::string> helpAnchor() const;          ///< always absent

    /// The failure as a domain, a number and a text, for hosts that log or forward errors.
    BridgedError bridged() const;

private:
    explicit TarvexError(Code code, std::string payload = {});

    Code code_;
    std::string payload_;
};

}  // namespace tarvex
