#pragma once

#include <functional>

#include "tarvex/export.h"

namespace tarvex::platform {

/// The application's permission to use the camera. Thread-safe.
class TARVEX_EXPORT CaptureDevice {
public:
    virtual ~CaptureDevice() = default;

    /// Requests the permission, or reports an earlier decision. `handler` receives true when it is granted; it is
    /// called exactly once, after this has returned, on a thread of the platform's choosing.
    virtual void requestAccessForVideo(std::function<void(bool)> handler) = 0;

    /// True while a request waits for its answer: the system may show a dialog of its own over the application's
    /// windows.
    virtual bool isRequestInProgress() const { return false; }
};

}  // namespace tarvex::platform
