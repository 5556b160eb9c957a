#include "platform/camera/pipewire/video_format.h"

#include <spa/buffer/buffer.h>
#include <spa/param/buffers.h>
#include <spa/param/param.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>

#include <algorithm>
#include <utility>

namespace tarvex::camera {
namespace {

struct PixelFormat {
    spa_video_format id;
    const char* name;
};

// The cheapest to convert and the most common first.
constexpr std::array pixelFormats{
    PixelFormat{.id = SPA_VIDEO_FORMAT_YUY2, .name = "YUY2"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_NV12, .name = "NV12"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_I420, .name = "I420"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_UYVY, .name = "UYVY"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_YVYU, .name = "YVYU"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_NV21, .name = "NV21"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_YV12, .name = "YV12"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_RGB, .name = "RGB"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_BGR, .name = "BGR"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_RGBx, .name = "RGBx"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_BGRx, .name = "BGRx"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_xRGB, .name = "xRGB"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_xBGR, .name = "xBGR"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_RGBA, .name = "RGBA"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_BGRA, .name = "BGRA"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_ARGB, .name = "ARGB"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_ABGR, .name = "ABGR"},
    PixelFormat{.id = SPA_VIDEO_FORMAT_GRAY8, .name = "GRAY8"},
};

// The size that the networks need; a camera that has it spares the rest.
constexpr spa_rectangle preferredSize{.width = 640, .height = 480};
constexpr spa_rectangle leastSize{.width = 16, .height = 16};
constexpr spa_rectangle largestSize{.width = 4096, .height = 4096};

void addChoice(spa_pod_builder& builder, spa_choice_type type, auto add, auto values) {
    spa_pod_frame choice{};
    spa_pod_builder_push_choice(&builder, &choice, type, 0);
    for (const auto& value : values)
        add(&builder, value);
    spa_pod_builder_pop(&builder, &choice);
}

void addSize(spa_pod_builder& builder, spa_rectangle size) {
    spa_pod_builder_rectangle(&builder, size.width, size.height);
}

void addFormat(spa_pod_builder& builder, spa_media_subtype subtype, bool anySize) {
    spa_pod_frame object{};
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
    spa_pod_builder_prop(&builder, SPA_FORMAT_mediaType, 0);
    spa_pod_builder_id(&builder, SPA_MEDIA_TYPE_video);
    spa_pod_builder_prop(&builder, SPA_FORMAT_mediaSubtype, 0);
    spa_pod_builder_id(&builder, subtype);
    if (subtype == SPA_MEDIA_SUBTYPE_raw) {
        // The first value of an enumeration is the default, and stands among the others once more.
        std::vector<std::uint32_t> ids{pixelFormats.front().id};
        for (const PixelFormat& format : pixelFormats)
            ids.push_back(format.id);
        spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_format, 0);
        addChoice(builder, SPA_CHOICE_Enum, spa_pod_builder_id, ids);
    }
    spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_size, 0);
    if (anySize)
        addChoice(
            builder, SPA_CHOICE_Range, [](spa_pod_builder* to, spa_rectangle size) { addSize(*to, size); },
            std::array{preferredSize, leastSize, largestSize});
    else
        addSize(builder, preferredSize);
    spa_pod_builder_pop(&builder, &object);
}

}  // namespace

StreamParameters StreamParameters::formats() {
    StreamParameters formats;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, formats.bytes_.data(), formats.bytes_.size());
    for (const bool anySize : {false, true}) {
        for (const auto subtype : {SPA_MEDIA_SUBTYPE_raw, SPA_MEDIA_SUBTYPE_mjpg}) {
            formats.offsets_.push_back(builder.state.offset);
            addFormat(builder, subtype, anySize);
        }
    }
    return formats;
}

StreamParameters StreamParameters::buffers() {
    StreamParameters buffers;
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, buffers.bytes_.data(), buffers.bytes_.size());
    buffers.offsets_.push_back(0);
    spa_pod_frame object{};
    spa_pod_builder_push_object(&builder, &object, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers);
    spa_pod_builder_prop(&builder, SPA_PARAM_BUFFERS_buffers, 0);
    addChoice(builder, SPA_CHOICE_Range, spa_pod_builder_int, std::array{4, 1, 32});
    // Memory that the processor reads: a buffer of the graphics would need to be fetched first.
    spa_pod_builder_prop(&builder, SPA_PARAM_BUFFERS_dataType, 0);
    addChoice(builder, SPA_CHOICE_Flags, spa_pod_builder_int,
              std::array{(1 << SPA_DATA_MemPtr) | (1 << SPA_DATA_MemFd)});
    spa_pod_builder_pop(&builder, &object);
    return buffers;
}

std::vector<const spa_pod*> StreamParameters::pods() const {
    std::vector<const spa_pod*> pods;
    pods.reserve(offsets_.size());
    for (const std::size_t offset : offsets_)
        pods.push_back(reinterpret_cast<const spa_pod*>(bytes_.data() + offset));
    return pods;
}

std::optional<VideoFormat> videoFormatOf(const spa_pod& parameter) {
    spa_video_info information{};
    if (spa_format_video_parse(&parameter, &information) < 0) return std::nullopt;
    const auto made = [](const char* name, const spa_rectangle& size) {
        return VideoFormat{
            .name = name, .width = static_cast<int>(size.width), .height = static_cast<int>(size.height)};
    };
    if (information.media_subtype == SPA_MEDIA_SUBTYPE_mjpg) return made("JPEG", information.info.mjpg.size);
    if (information.media_subtype != SPA_MEDIA_SUBTYPE_raw) return std::nullopt;
    const auto* format = std::ranges::find(pixelFormats, information.info.raw.format, &PixelFormat::id);
    if (format == pixelFormats.end()) return std::nullopt;
    return made(format->name, information.info.raw.size);
}

}  // namespace tarvex::camera
