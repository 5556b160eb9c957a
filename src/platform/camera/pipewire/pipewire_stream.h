#pragma once

#include <pipewire/pipewire.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/camera/capture/frame_decoder.h"
#include "platform/camera/pipewire/pipewire_connection.h"
#include "platform/camera/pipewire/video_format.h"

namespace tarvex::camera {

/// An open camera of PipeWire. Its buffers go back at once: others may look through the same camera. Thread-safe.
class PipeWireStream {
public:
    /// Asks for the camera with this serial number, and no other. It opens in its own time.
    PipeWireStream(std::shared_ptr<PipeWireConnection> connection, const std::string& serial);
    ~PipeWireStream();
    PipeWireStream(const PipeWireStream&) = delete;
    PipeWireStream& operator=(const PipeWireStream&) = delete;

    /// Waits at most `patience` for a frame that comes after the call.
    std::optional<CameraFrame> next(std::chrono::milliseconds patience);

    /// What PipeWire says, once no frame will come any more.
    std::optional<std::string> failure();

private:
    static const pw_stream_events& events();

    void fail(const std::string& why);
    void takeFormat(const spa_pod& parameter);
    void takeFrame();

    std::shared_ptr<PipeWireConnection> connection_;
    pw_stream* stream_ = nullptr;
    spa_hook listener_{};
    std::optional<VideoFormat> format_;  ///< known to the connection's thread

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isWanted_ = false;  ///< a frame
    std::optional<CameraFrame> frame_;
    std::optional<std::string> failure_;
};

}  // namespace tarvex::camera
