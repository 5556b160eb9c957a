#pragma once

#include <filesystem>
#include <functional>

#include "platform/capture_device.h"
#include "platform/dispatch.h"

namespace tarvex::platform {

/// Answers for the camera from what the system lets this user do; nobody is asked.
///
/// Granted when some video device can be opened for reading and writing, and also when there is no video device at all:
/// a machine that only measures light must be able to get its user's consent. Refused when there are devices, but none
/// that this user may open. No device is opened to find out.
class DeviceNodeCaptureDevice final : public CaptureDevice {
public:
    /// `queues` must outlive this; `deviceDirectory` is where the nodes video0, video1, … lie.
    explicit DeviceNodeCaptureDevice(DispatchQueues& queues, std::filesystem::path deviceDirectory = "/dev");

    /// Answers on a background thread.
    void requestAccessForVideo(std::function<void(bool)> handler) override;

private:
    DispatchQueues& queues_;
    std::filesystem::path deviceDirectory_;
};

}  // namespace tarvex::platform
