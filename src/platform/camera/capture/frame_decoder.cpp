#include "platform/camera/capture/frame_decoder.h"

#include <gst/app/gstappsrc.h>
#include <gst/video/video.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "platform/camera/capture/frame_pipeline.h"
#include "platform/shared/handle.h"

namespace tarvex::camera {
namespace {

using platform::Handle;
using Buffer = Handle<GstBuffer, gst_buffer_unref>;
using Caps = Handle<GstCaps, gst_caps_unref>;

// Past it, sizes no longer multiply safely; what the networks take is far below.
constexpr int maximumSide = 16384;
constexpr int maximumStride = 16 * maximumSide;

constexpr const char* head = "appsrc name=source is-live=true format=time do-timestamp=true ! decodebin";

/// Where each plane of a raw frame lies.
struct Layout {
    GstVideoInfo info{};
    std::array<std::size_t, GST_VIDEO_MAX_PLANES> offsets{};
    std::array<int, GST_VIDEO_MAX_PLANES> strides{};
};

/// The first component that lies in the plane.
unsigned componentOf(const GstVideoInfo& info, unsigned plane) {
    std::array<int, GST_VIDEO_MAX_COMPONENTS> components{};
    gst_video_format_info_component(info.finfo, plane, components.data());
    return static_cast<unsigned>(components[0]);
}

/// The bytes of so many pixels in a row of the plane.
int bytesOf(int pixels, const GstVideoInfo& info, unsigned plane) {
    const unsigned component = componentOf(info, plane);
    return GST_VIDEO_FORMAT_INFO_SCALE_WIDTH(info.finfo, component, pixels) *
           GST_VIDEO_FORMAT_INFO_PSTRIDE(info.finfo, component);
}

/// Where the camera does not say it: as GStreamer lays it out, or as follows from the first plane.
int strideOf(const CameraFrame& frame, const GstVideoInfo& info, unsigned plane) {
    if (frame.planes.front().stride == 0) return GST_VIDEO_INFO_PLANE_STRIDE(&info, plane);
    if (plane < frame.planes.size()) return frame.planes[plane].stride;
    const int pixels = frame.planes.front().stride / bytesOf(1, info, 0);
    return bytesOf(pixels, info, plane);
}

/// Absent when the frame is not what it says, or of a format that GStreamer does not know.
std::optional<Layout> layoutOf(const CameraFrame& frame) {
    Layout layout;
    GstVideoInfo& info = layout.info;
    const auto format = gst_video_format_from_string(frame.format.c_str());
    const bool hasSize =
        frame.width > 0 && frame.width <= maximumSide && frame.height > 0 && frame.height <= maximumSide;
    if (!hasSize || frame.planes.empty() || format == GST_VIDEO_FORMAT_UNKNOWN ||
        gst_video_info_set_format(&info, format, static_cast<guint>(frame.width), static_cast<guint>(frame.height)) ==
            FALSE)
        return std::nullopt;
    std::size_t offset = 0;
    for (unsigned plane = 0; plane < GST_VIDEO_INFO_N_PLANES(&info); ++plane) {
        if (plane < frame.planes.size()) offset = frame.planes[plane].offset;
        const int stride = strideOf(frame, info, plane);
        if (stride < bytesOf(frame.width, info, plane) || stride > maximumStride) return std::nullopt;
        const int rows = GST_VIDEO_INFO_COMP_HEIGHT(&info, componentOf(info, plane));
        // The last row need not be filled up.
        const auto end = offset + static_cast<std::size_t>(stride) * static_cast<std::size_t>(rows - 1) +
                         static_cast<std::size_t>(std::min(stride, GST_VIDEO_INFO_PLANE_STRIDE(&info, plane)));
        if (offset > frame.bytes.size() || end > frame.bytes.size()) return std::nullopt;
        layout.offsets[plane] = offset;
        layout.strides[plane] = stride;
        offset += static_cast<std::size_t>(stride) * static_cast<std::size_t>(rows);
    }
    return layout;
}

Buffer bufferOf(std::vector<std::uint8_t> bytes) {
    auto owned = std::make_unique<std::vector<std::uint8_t>>(std::move(bytes));
    auto* kept = owned.get();
    return Buffer(gst_buffer_new_wrapped_full(
        GST_MEMORY_FLAG_READONLY, kept->data(), kept->size(), 0, kept->size(), owned.release(),
        [](void* vector) { delete static_cast<std::vector<std::uint8_t>*>(vector); }));
}

}  // namespace

FrameDecoder::FrameDecoder(std::unique_ptr<FramePipeline> pipeline) : pipeline_(std::move(pipeline)) {}
FrameDecoder::FrameDecoder(FrameDecoder&&) noexcept = default;
FrameDecoder& FrameDecoder::operator=(FrameDecoder&&) noexcept = default;
FrameDecoder::~FrameDecoder() = default;

std::expected<FrameDecoder, std::string> FrameDecoder::open(const std::string& name) {
    auto pipeline = FramePipeline::open({.head = head, .name = name});
    if (!pipeline) return std::unexpected(pipeline.error());
    return FrameDecoder(std::move(*pipeline));
}

std::expected<bool, std::string> FrameDecoder::decode(CameraFrame frame, std::chrono::milliseconds patience,
                                                      const std::function<void(const Frame&)>& look) {
    if (frame.bytes.empty()) return false;
    Caps caps;
    Buffer buffer;
    if (frame.format == "JPEG") {
        caps.reset(gst_caps_new_simple("image/jpeg", "width", G_TYPE_INT, frame.width, "height", G_TYPE_INT,
                                       frame.height, "framerate", GST_TYPE_FRACTION, 0, 1, nullptr));
        buffer = bufferOf(std::move(frame.bytes));
    } else {
        auto layout = layoutOf(frame);
        if (!layout) return false;
        caps.reset(gst_video_info_to_caps(&layout->info));
        buffer = bufferOf(std::move(frame.bytes));
        gst_buffer_add_video_meta_full(buffer.get(), GST_VIDEO_FRAME_FLAG_NONE, GST_VIDEO_INFO_FORMAT(&layout->info),
                                       static_cast<guint>(frame.width), static_cast<guint>(frame.height),
                                       GST_VIDEO_INFO_N_PLANES(&layout->info), layout->offsets.data(),
                                       layout->strides.data());
    }
    const Handle<GstSample, gst_sample_unref> sample(gst_sample_new(buffer.get(), caps.get(), nullptr, nullptr));
    gst_app_src_push_sample(GST_APP_SRC(&pipeline_->source()), sample.get());
    return pipeline_->next(patience, look);
}

}  // namespace tarvex::camera
