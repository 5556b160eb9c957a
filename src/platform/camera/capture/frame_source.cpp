#include "platform/camera/capture/frame_source.h"

#include <gst/app/gstappsink.h>
#include <gst/gst.h>
#include <gst/video/video.h>

#include <optional>
#include <utility>

#include "platform/shared/handle.h"

namespace tarvex::camera {
namespace {

using platform::Handle;
using Element = Handle<GstElement, gst_object_unref>;

void stopAndUnref(GstElement* pipeline) {
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
}
using Pipeline = Handle<GstElement, stopAndUnref>;

// The first words of each pipeline; properties that come from outside are set on the element named "source".
constexpr const char* cameraHead =
    "v4l2src name=source ! "
    "video/x-raw,width=640,height=480; image/jpeg,width=640,height=480; video/x-raw; image/jpeg ! decodebin";
constexpr const char* portalHead = "pipewiresrc name=source ! decodebin";
constexpr const char* videoHead = "filesrc name=source ! decodebin";
constexpr const char* pictureHead = "filesrc name=source ! decodebin ! videoconvert ! imagefreeze";

// A frame past these bounds never reaches a network, though a decoder may have made one; the error text below and
// camera.h name them.
constexpr const char* tail =
    " ! videoconvert ! video/x-raw,format=RGB,width=[16,4096],height=[16,4096] ! "
    "appsink name=sink sync=false emit-signals=false enable-last-sample=false max-buffers=1";
constexpr const char* newestOnly = " drop=true";

bool startGStreamer() {
    static const bool started = gst_init_check(nullptr, nullptr, nullptr) != FALSE;
    return started;
}

std::string sentence(GError* error) {
    const Handle<GError, g_error_free> owned(error);
    return owned ? owned->message : "GStreamer gives no reason";
}

class GstFrameSource final : public FrameSource {
public:
    GstFrameSource(Pipeline pipeline, std::string name) : pipeline_(std::move(pipeline)), name_(std::move(name)) {
        sink_.reset(gst_bin_get_by_name(GST_BIN(pipeline_.get()), "sink"));
        bus_.reset(gst_element_get_bus(pipeline_.get()));
    }

    std::expected<void, std::string> start() {
        if (gst_element_set_state(pipeline_.get(), GST_STATE_PLAYING) != GST_STATE_CHANGE_FAILURE) return {};
        return std::unexpected(failure().value_or(name_ + " cannot be opened"));
    }

    std::expected<bool, std::string> next(std::chrono::milliseconds patience,
                                          const std::function<void(const Frame&)>& look) override {
        const Handle<GstSample, gst_sample_unref> sample(gst_app_sink_try_pull_sample(
            GST_APP_SINK(sink_.get()), static_cast<GstClockTime>(patience.count()) * GST_MSECOND));
        if (sample) return show(*sample, look);
        if (auto reason = failure()) return std::unexpected(std::move(*reason));
        if (gst_app_sink_is_eos(GST_APP_SINK(sink_.get())) != FALSE) return std::unexpected(name_ + " is at its end");
        return false;
    }

private:
    static bool show(GstSample& sample, const std::function<void(const Frame&)>& look) {
        GstVideoInfo info;
        GstCaps* caps = gst_sample_get_caps(&sample);
        GstBuffer* buffer = gst_sample_get_buffer(&sample);
        GstVideoFrame mapped;
        if (caps == nullptr || buffer == nullptr || gst_video_info_from_caps(&info, caps) == FALSE ||
            gst_video_frame_map(&mapped, &info, buffer, GST_MAP_READ) == FALSE)
            return false;
        const auto height = static_cast<std::size_t>(GST_VIDEO_FRAME_HEIGHT(&mapped));
        const auto stride = static_cast<std::size_t>(GST_VIDEO_FRAME_PLANE_STRIDE(&mapped, 0));
        const auto* pixels = static_cast<const std::uint8_t*>(GST_VIDEO_FRAME_PLANE_DATA(&mapped, 0));
        look({.width = GST_VIDEO_FRAME_WIDTH(&mapped),
              .height = static_cast<int>(height),
              .stride = stride,
              .pixels = std::span(pixels, height * stride)});
        gst_video_frame_unmap(&mapped);
        return true;
    }

    /// True when the pipeline failed because the frames are not of the kind that `tail` requires.
    static bool wantsOtherFrames(GstMessage& message) {
        const GstStructure* details = nullptr;
        gst_message_parse_error_details(&message, &details);
        int flow = GST_FLOW_OK;
        return details != nullptr && gst_structure_get_int(details, "flow-return", &flow) != FALSE &&
               flow == GST_FLOW_NOT_NEGOTIATED;
    }

    /// The failure that the pipeline has reported, if any.
    std::optional<std::string> failure() {
        const Handle<GstMessage, gst_message_unref> message(gst_bus_pop_filtered(bus_.get(), GST_MESSAGE_ERROR));
        if (!message) return std::nullopt;
        if (wantsOtherFrames(*message)) return name_ + " delivers no frames that are 16 to 4096 pixels wide and high";
        GError* error = nullptr;
        gst_message_parse_error(message.get(), &error, nullptr);
        return name_ + " delivers no frames: " + sentence(error);
    }

    Pipeline pipeline_;
    Element sink_;
    Handle<GstBus, gst_object_unref> bus_;
    std::string name_;
};

struct Plan {
    std::string launch;
    std::string name;  ///< for a person
    std::optional<std::filesystem::path> device = std::nullopt;
    std::optional<std::filesystem::path> location = std::nullopt;
    std::optional<PipeWireNode> pipeWire = std::nullopt;
};

Plan planFor(const std::filesystem::path& node) {
    return {
        .launch = std::string(cameraHead) + tail + newestOnly, .name = "the camera " + node.string(), .device = node};
}

Plan planFor(const PipeWireNode& pipeWire) {
    return {.launch = std::string(portalHead) + tail + newestOnly, .name = "the portal's camera", .pipeWire = pipeWire};
}

Plan planFor(const Video& video) {
    return {
        .launch = std::string(videoHead) + tail, .name = "the video " + video.path.string(), .location = video.path};
}

Plan planFor(const Picture& picture) {
    return {.launch = std::string(pictureHead) + tail,
            .name = "the picture " + picture.path.string(),
            .location = picture.path};
}

void setProperties(GstElement* source, const Plan& plan) {
    if (plan.device) g_object_set(source, "device", plan.device->c_str(), nullptr);
    if (plan.location) g_object_set(source, "location", plan.location->c_str(), nullptr);
    if (plan.pipeWire) {
        const std::string node = std::to_string(plan.pipeWire->node);
        g_object_set(source, "fd", plan.pipeWire->remote, "path", node.c_str(), nullptr);
    }
}

}  // namespace

std::expected<std::unique_ptr<FrameSource>, std::string> openFrameSource(const OpenedSource& source) {
    if (!startGStreamer()) return std::unexpected("GStreamer does not start on this machine");
    const Plan plan = std::visit([](const auto& opened) { return planFor(opened); }, source);
    GError* error = nullptr;
    Element parsed(gst_parse_launch_full(plan.launch.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error));
    if (!parsed) return std::unexpected(plan.name + " cannot be opened: " + sentence(error));
    g_clear_error(&error);
    Pipeline pipeline(GST_ELEMENT(gst_object_ref_sink(parsed.release())));
    const Element element(gst_bin_get_by_name(GST_BIN(pipeline.get()), "source"));
    setProperties(element.get(), plan);
    auto opened = std::make_unique<GstFrameSource>(std::move(pipeline), plan.name);
    if (auto started = opened->start(); !started) return std::unexpected(started.error());
    return opened;
}

}  // namespace tarvex::camera
