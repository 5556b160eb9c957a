#pragma once

#include <functional>

#include "tarvex/export.h"

namespace tarvex::platform {

/// The system's word on whether the application may use the camera. Called from any thread.
class TARVEX_EXPORT CaptureDevice {
public:
    virtual ~CaptureDevice() = default;

    /// Asks whether the application may use the camera, or answers from an earlier decision. `handler` is called
    /// exactly once, after this has returned, on a thread of the platform's choosing.
    virtual void requestAccessForVideo(std::function<void(bool)> handler) = 0;

    /// Whether a request waits for its answer: the system may show a dialog of its own over the application's windows.
    virtual bool isRequestInProgress() const { return false; }
};

}  // namespace tarvex::platform
