#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

#include "tarvex/export.h"
#include "tarvex/platform/capture_device.h"

namespace tarvex::testing {

/// A camera permission in a test's hands: requests wait until `answerNext` plays the next of the given answers. Past
/// the last answer every request is refused. Thread-safe.
///
///     auto device = std::make_unique<ScriptedCaptureDevice>(std::deque{true, false});
///     ScriptedCaptureDevice& camera = *device;
///     platform->setCaptureDevice(std::move(device));
///     // The user clicks "I consent";
///     camera.answerNext();                 // and allows the camera.
class TARVEX_EXPORT ScriptedCaptureDevice final : public platform::CaptureDevice {
public:
    explicit ScriptedCaptureDevice(std::deque<bool> answers = {});

    void requestAccessForVideo(std::function<void(bool)> handler) override;
    bool isRequestInProgress() const override;

    /// Number of requests so far.
    std::size_t requestCount() const;

    /// Completes the request that has waited longest, on the calling thread; false when none waits.
    bool answerNext();

private:
    mutable std::mutex mutex_;
    std::deque<bool> answers_;
    std::deque<std::function<void(bool)>> waiting_;
    std::size_t requestCount_ = 0;
};

}  // namespace tarvex::testing
