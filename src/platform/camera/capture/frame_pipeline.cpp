#include "platform/camera/capture/frame_pipeline.h"

#include <gst/app/gstappsink.h>
#include <gst/video/video.h>

#include <utility>

namespace tarvex::camera {
namespace {

using platform::Handle;

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

bool show(GstSample& sample, const std::function<void(const Frame&)>& look) {
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
bool wantsOtherFrames(GstMessage& message) {
    const GstStructure* details = nullptr;
    gst_message_parse_error_details(&message, &details);
    int flow = GST_FLOW_OK;
    return details != nullptr && gst_structure_get_int(details, "flow-return", &flow) != FALSE &&
           flow == GST_FLOW_NOT_NEGOTIATED;
}

}  // namespace

void FramePipeline::stopAndUnref(GstElement* pipeline) {
    gst_element_set_state(pipeline, GST_STATE_NULL);
    gst_object_unref(pipeline);
}

FramePipeline::FramePipeline(GstElement* pipeline, std::string name)
    : name_(std::move(name)),
      pipeline_(pipeline),
      source_(gst_bin_get_by_name(GST_BIN(pipeline), "source")),
      sink_(gst_bin_get_by_name(GST_BIN(pipeline), "sink")),
      bus_(gst_element_get_bus(pipeline)) {}

std::expected<std::unique_ptr<FramePipeline>, std::string> FramePipeline::open(const Plan& plan) {
    if (!startGStreamer()) return std::unexpected("GStreamer does not start on this machine");
    const std::string description = plan.head + tail + (plan.skipsFrames ? newestOnly : "");
    GError* error = nullptr;
    Element parsed(gst_parse_launch_full(description.c_str(), nullptr, GST_PARSE_FLAG_FATAL_ERRORS, &error));
    if (!parsed) return std::unexpected(plan.name + " cannot be opened: " + sentence(error));
    g_clear_error(&error);
    auto* pipeline = GST_ELEMENT(gst_object_ref_sink(parsed.release()));
    std::unique_ptr<FramePipeline> opened(new FramePipeline(pipeline, plan.name));
    if (plan.path) g_object_set(&opened->source(), plan.property, plan.path->c_str(), nullptr);
    if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE)
        return std::unexpected(opened->failure().value_or(plan.name + " cannot be opened"));
    return opened;
}

std::expected<bool, std::string> FramePipeline::next(std::chrono::milliseconds patience,
                                                     const std::function<void(const Frame&)>& look) {
    const Handle<GstSample, gst_sample_unref> sample(gst_app_sink_try_pull_sample(
        GST_APP_SINK(sink_.get()), static_cast<GstClockTime>(patience.count()) * GST_MSECOND));
    if (sample) return show(*sample, look);
    if (auto reason = failure()) return std::unexpected(std::move(*reason));
    if (gst_app_sink_is_eos(GST_APP_SINK(sink_.get())) != FALSE) return std::unexpected(name_ + " is at its end");
    return false;
}

/// The failure that the pipeline has reported, if any.
std::optional<std::string> FramePipeline::failure() {
    const Handle<GstMessage, gst_message_unref> message(gst_bus_pop_filtered(bus_.get(), GST_MESSAGE_ERROR));
    if (!message) return std::nullopt;
    if (wantsOtherFrames(*message)) return name_ + " delivers no frames that are 16 to 4096 pixels wide and high";
    GError* error = nullptr;
    gst_message_parse_error(message.get(), &error, nullptr);
    return name_ + " delivers no frames: " + sentence(error);
}

}  // namespace tarvex::camera
