#pragma once

#include <gst/gst.h>

#include <string>

namespace tarvex::test {

/// While it lives, GStreamer's camera source is a simulated one: whatever the device's path, it delivers what the
/// pipeline does. One at a time.
class SimulatedCamera {
public:
    explicit SimulatedCamera(const std::string& pipeline);
    ~SimulatedCamera();
    SimulatedCamera(const SimulatedCamera&) = delete;
    SimulatedCamera& operator=(const SimulatedCamera&) = delete;

private:
    GstPluginFeature* real_ = nullptr;  ///< absent where GStreamer has no camera source
};

}  // namespace tarvex::test
