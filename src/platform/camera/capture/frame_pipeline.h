#pragma once

#include <gst/gst.h>

#include <chrono>
#include <expected>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/camera/capture/frame_source.h"
#include "platform/shared/handle.h"

namespace tarvex::camera {

/// A GStreamer pipeline that ends with frames for the networks. Reentrant.
class FramePipeline final : public FrameSource {
public:
    struct Plan {
        std::string head;         ///< the first elements; the first of all is named "source"
        std::string name;         ///< of what delivers the frames, for a person
        bool skipsFrames = true;  ///< only the newest frame counts
        /// Of the source, and its value: what comes from outside is never part of a description.
        const char* property = nullptr;
        std::optional<std::filesystem::path> path = std::nullopt;
    };

    /// One sentence when it cannot be opened.
    static std::expected<std::unique_ptr<FramePipeline>, std::string> open(const Plan& plan);

    std::expected<bool, std::string> next(std::chrono::milliseconds patience,
                                          const std::function<void(const Frame&)>& look) override;

    GstElement& source() const { return *source_; }

private:
    using Element = platform::Handle<GstElement, gst_object_unref>;
    static void stopAndUnref(GstElement* pipeline);

    FramePipeline(GstElement* pipeline, std::string name);

    std::optional<std::string> failure();

    std::string name_;
    platform::Handle<GstElement, stopAndUnref> pipeline_;
    Element source_;
    Element sink_;
    platform::Handle<GstBus, gst_object_unref> bus_;
};

}  // namespace tarvex::camera
