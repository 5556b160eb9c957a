// A camera node of PipeWire that shows the same frame, until it is ended.
// usage: simulated_camera NAME YUY2|NV12|I420|GRAY8|JPEG WIDTH HEIGHT LOCATION|- FILE|""
// FILE holds the bytes of the frame; without one, it is an even grey. Prints from when until when it was open, in ms.

#include <pipewire/pipewire.h>
#include <spa/param/buffers.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

namespace {

struct Layout {
    spa_video_format format;
    std::uint32_t bytesInARow;  ///< of the first plane, for each pixel
    std::uint32_t bitsOfAPixel;
};

const std::map<std::string, Layout> layouts{{"YUY2", {SPA_VIDEO_FORMAT_YUY2, 2, 16}},
                                            {"NV12", {SPA_VIDEO_FORMAT_NV12, 1, 12}},
                                            {"I420", {SPA_VIDEO_FORMAT_I420, 1, 12}},
                                            {"GRAY8", {SPA_VIDEO_FORMAT_GRAY8, 1, 8}}};

struct Camera {
    std::string frame;
    pw_main_loop* loop = nullptr;
    pw_stream* stream = nullptr;
    spa_source* timer = nullptr;
    std::uint32_t stride = 0;
    double opened = 0;
};

double now() {
    const auto time = std::chrono::steady_clock::now().time_since_epoch();
    return std::chrono::duration<double, std::milli>(time).count();
}

void changeState(void* data, pw_stream_state before, pw_stream_state state, const char*) {
    auto& camera = *static_cast<Camera*>(data);
    timespec interval{.tv_sec = 0, .tv_nsec = state == PW_STREAM_STATE_STREAMING ? 33'000'000 : 0};
    pw_loop_update_timer(pw_main_loop_get_loop(camera.loop), camera.timer, &interval, &interval, false);
    if (state == PW_STREAM_STATE_STREAMING) camera.opened = now();
    if (before != PW_STREAM_STATE_STREAMING) return;
    std::printf("%.3f %.3f\n", camera.opened, now());
    std::fflush(stdout);
}

void changeParameter(void* data, std::uint32_t id, const spa_pod* parameter) {
    if (parameter == nullptr || id != SPA_PARAM_Format) return;
    const auto& camera = *static_cast<Camera*>(data);
    std::array<std::uint8_t, 1024> room{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, room.data(), room.size());
    spa_pod_frame frame{};
    spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
    for (const auto& [key, value] : {std::pair{SPA_PARAM_BUFFERS_buffers, 8},  // the fewest that GStreamer takes
                                     {SPA_PARAM_BUFFERS_blocks, 1},
                                     {SPA_PARAM_BUFFERS_size, static_cast<int>(camera.frame.size())},
                                     {SPA_PARAM_BUFFERS_stride, static_cast<int>(camera.stride)},
                                     {SPA_PARAM_BUFFERS_dataType, 1 << SPA_DATA_MemFd}}) {
        spa_pod_builder_prop(&builder, key, 0);
        spa_pod_builder_int(&builder, value);
    }
    const auto* buffers = static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
    pw_stream_update_params(camera.stream, &buffers, 1);
}

void fill(void* data) {
    const auto& camera = *static_cast<Camera*>(data);
    pw_buffer* buffer = pw_stream_dequeue_buffer(camera.stream);
    if (buffer == nullptr) return;
    spa_data& plane = buffer->buffer->datas[0];
    if (plane.data != nullptr) std::memcpy(plane.data, camera.frame.data(), camera.frame.size());
    plane.chunk->offset = 0;
    plane.chunk->size = static_cast<std::uint32_t>(camera.frame.size());
    plane.chunk->stride = static_cast<std::int32_t>(camera.stride);
    pw_stream_queue_buffer(camera.stream, buffer);
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 7) return 2;
    const std::string format = arguments[2];
    const bool isCompressed = format == "JPEG";
    const Layout layout = isCompressed ? Layout{} : layouts.at(format);
    const spa_rectangle size{static_cast<std::uint32_t>(std::atoi(arguments[3])),
                             static_cast<std::uint32_t>(std::atoi(arguments[4]))};

    pw_init(nullptr, nullptr);
    Camera camera;
    camera.stride = size.width * layout.bytesInARow;
    std::ifstream file(arguments[6], std::ios::binary);
    if (file)
        camera.frame.assign(std::istreambuf_iterator<char>(file), {});
    else
        camera.frame.assign(std::size_t{size.width} * size.height * layout.bitsOfAPixel / 8, '\x80');
    camera.loop = pw_main_loop_new(nullptr);
    camera.timer = pw_loop_add_timer(
        pw_main_loop_get_loop(camera.loop),
        [](void* data, std::uint64_t) { pw_stream_trigger_process(static_cast<Camera*>(data)->stream); }, &camera);
    pw_properties* properties =
        pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_MEDIA_ROLE, "Camera", PW_KEY_NODE_NAME, "camera",
                          PW_KEY_NODE_DESCRIPTION, arguments[1], nullptr);
    if (arguments[5] != std::string_view("-")) pw_properties_set(properties, "api.libcamera.location", arguments[5]);
    pw_stream_events events{};
    events.version = PW_VERSION_STREAM_EVENTS;
    events.state_changed = changeState;
    events.param_changed = changeParameter;
    events.process = fill;
    camera.stream =
        pw_stream_new_simple(pw_main_loop_get_loop(camera.loop), arguments[1], properties, &events, &camera);

    spa_video_info information{};
    information.media_type = SPA_MEDIA_TYPE_video;
    information.media_subtype = isCompressed ? SPA_MEDIA_SUBTYPE_mjpg : SPA_MEDIA_SUBTYPE_raw;
    if (isCompressed)
        information.info.mjpg = {.size = size, .framerate = {30, 1}, .max_framerate = {}};
    else {
        information.info.raw.format = layout.format;
        information.info.raw.size = size;
        information.info.raw.framerate = {30, 1};
    }
    std::array<std::uint8_t, 1024> room{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, room.data(), room.size());
    const spa_pod* offered = spa_format_video_build(&builder, SPA_PARAM_EnumFormat, &information);
    pw_stream_connect(camera.stream, PW_DIRECTION_OUTPUT, PW_ID_ANY,
                      static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS), &offered, 1);
    pw_main_loop_run(camera.loop);
}
