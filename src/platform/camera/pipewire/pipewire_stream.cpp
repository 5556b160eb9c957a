#include "platform/camera/pipewire/pipewire_stream.h"

#include <algorithm>
#include <cstring>
#include <system_error>
#include <utility>

namespace tarvex::camera {
namespace {

using namespace std::chrono_literals;
using Clock = PipeWireConnection::Clock;
using Lock = PipeWireConnection::Lock;

// How long the daemon may take to hear that the camera is no longer wanted.
constexpr auto closePatience = 100ms;

constexpr auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_DONT_RECONNECT |
                                                    PW_STREAM_FLAG_MAP_BUFFERS | PW_STREAM_FLAG_NO_CONVERT);

/// Appends what the camera has filled of a buffer. False when that is not what it says.
bool append(CameraFrame& frame, const spa_data& data) {
    const auto* bytes = static_cast<const std::uint8_t*>(data.data);
    const bool isWhole = bytes != nullptr &&
                         (static_cast<unsigned>(data.chunk->flags) & SPA_CHUNK_FLAG_CORRUPTED) == 0 &&
                         data.chunk->offset <= data.maxsize && data.chunk->size <= data.maxsize - data.chunk->offset;
    if (!isWhole || data.chunk->size == 0) return false;
    frame.planes.push_back({.offset = frame.bytes.size(), .stride = data.chunk->stride});
    const auto* first = bytes + data.chunk->offset;
    frame.bytes.insert(frame.bytes.end(), first, first + data.chunk->size);
    return true;
}

}  // namespace

PipeWireStream::PipeWireStream(std::shared_ptr<PipeWireConnection> connection, const std::string& serial)
    : connection_(std::move(connection)) {
    const Lock lock(*connection_);
    pw_properties* properties =
        pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CATEGORY, "Capture", PW_KEY_MEDIA_ROLE, "Camera",
                          PW_KEY_TARGET_OBJECT, serial.c_str(), nullptr);
    stream_ = pw_stream_new(&connection_->core(), "Tarvex", properties);
    if (stream_ == nullptr) {
        fail(std::generic_category().message(errno));
        return;
    }
    pw_stream_add_listener(stream_, &listener_, &events(), this);
    const auto formats = StreamParameters::formats();
    auto pods = formats.pods();
    const int result = pw_stream_connect(stream_, PW_DIRECTION_INPUT, PW_ID_ANY, flags, pods.data(),
                                         static_cast<std::uint32_t>(pods.size()));
    if (result < 0) fail(std::generic_category().message(-result));
}

PipeWireStream::~PipeWireStream() {
    if (stream_ == nullptr) return;
    {
        const Lock lock(*connection_);
        spa_hook_remove(&listener_);
        pw_stream_disconnect(stream_);
    }
    // libpipewire hands each frame to the connection's thread, and takes none of them back when the stream goes.
    connection_->settle();
    {
        const Lock lock(*connection_);
        pw_stream_destroy(stream_);
    }
    // The connection may be one of several over a descriptor, whose end would otherwise not be the camera's.
    connection_->catchUp(Clock::now() + closePatience);
}

std::optional<CameraFrame> PipeWireStream::next(std::chrono::milliseconds patience) {
    std::unique_lock guard(mutex_);
    isWanted_ = true;
    changed_.wait_for(guard, patience, [this] { return frame_ || failure_; });
    isWanted_ = false;
    return std::exchange(frame_, std::nullopt);
}

std::optional<std::string> PipeWireStream::failure() {
    const std::lock_guard guard(mutex_);
    return failure_;
}

void PipeWireStream::fail(const std::string& why) {
    const std::lock_guard guard(mutex_);
    failure_ = why;
    changed_.notify_all();
}

const pw_stream_events& PipeWireStream::events() {
    static const pw_stream_events events = [] {
        pw_stream_events filled{};
        filled.version = PW_VERSION_STREAM_EVENTS;
        filled.state_changed = [](void* self, pw_stream_state, pw_stream_state state, const char* error) {
            if (state == PW_STREAM_STATE_ERROR)
                static_cast<PipeWireStream*>(self)->fail(error != nullptr ? error : "PipeWire gives no reason");
        };
        filled.param_changed = [](void* self, std::uint32_t id, const spa_pod* parameter) {
            if (id == SPA_PARAM_Format && parameter != nullptr)
                static_cast<PipeWireStream*>(self)->takeFormat(*parameter);
        };
        filled.process = [](void* self) { static_cast<PipeWireStream*>(self)->takeFrame(); };
        return filled;
    }();
    return events;
}

void PipeWireStream::takeFormat(const spa_pod& parameter) {
    format_ = videoFormatOf(parameter);
    const auto buffers = StreamParameters::buffers();
    auto pods = buffers.pods();
    pw_stream_update_params(stream_, pods.data(), static_cast<std::uint32_t>(pods.size()));
}

void PipeWireStream::takeFrame() {
    pw_buffer* newest = nullptr;
    while (pw_buffer* buffer = pw_stream_dequeue_buffer(stream_)) {
        if (newest != nullptr) pw_stream_queue_buffer(stream_, newest);
        newest = buffer;
    }
    if (newest == nullptr) return;
    {
        const std::lock_guard guard(mutex_);
        if (isWanted_ && format_) {
            CameraFrame frame;
            frame.format = format_->name;
            frame.width = format_->width;
            frame.height = format_->height;
            const std::span planes(newest->buffer->datas, newest->buffer->n_datas);
            if (std::ranges::all_of(planes, [&](const spa_data& data) { return append(frame, data); })) {
                frame_ = std::move(frame);
                isWanted_ = false;
                changed_.notify_all();
            }
        }
    }
    pw_stream_queue_buffer(stream_, newest);
}

}  // namespace tarvex::camera
