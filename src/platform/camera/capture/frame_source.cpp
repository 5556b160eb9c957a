#include "platform/camera/capture/frame_source.h"

#include "platform/camera/capture/frame_pipeline.h"

namespace tarvex::camera {
namespace {

using Plan = FramePipeline::Plan;

constexpr const char* cameraHead =
    "v4l2src name=source ! "
    "video/x-raw,width=640,height=480; image/jpeg,width=640,height=480; video/x-raw; image/jpeg ! decodebin";
constexpr const char* videoHead = "filesrc name=source ! decodebin";
constexpr const char* pictureHead = "filesrc name=source ! decodebin ! videoconvert ! imagefreeze";

Plan planFor(const std::filesystem::path& node) {
    return {.head = cameraHead, .name = "the camera " + node.string(), .property = "device", .path = node};
}

Plan planFor(const Video& video) {
    return {.head = videoHead,
            .name = "the video " + video.path.string(),
            .skipsFrames = false,
            .property = "location",
            .path = video.path};
}

Plan planFor(const Picture& picture) {
    return {.head = pictureHead,
            .name = "the picture " + picture.path.string(),
            .skipsFrames = false,
            .property = "location",
            .path = picture.path};
}

}  // namespace

std::expected<std::unique_ptr<FrameSource>, std::string> openFrameSource(const OpenedSource& source) {
    return FramePipeline::open(std::visit([](const auto& opened) { return planFor(opened); }, source));
}

}  // namespace tarvex::camera
