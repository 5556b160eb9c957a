#pragma once

#include <gst/gst.h>

#include "platform/camera/capture/camera_capture.h"
#include "prelude.h"

namespace tarvex::test {

/// A camera whose state, faces and faults the test sets, and whose openings it counts.
struct ScriptedCamera {
    std::atomic<int> attempts = 0;  ///< to open it
    std::atomic<int> opened = 0;
    std::atomic<int> closed = 0;
    std::atomic<int> frames = 0;
    std::atomic<int> waits = 0;  ///< for a frame that did not come
    std::atomic<bool> refusesToOpen = false;
    std::atomic<bool> isUnplugged = false;
    std::atomic<bool> stalls = false;
    std::atomic<bool> showsFace = true;
    std::atomic<float> depth = 0.5F;  ///< metres to the face
    std::atomic<int> width = 640;     ///< of its frames

    camera::CaptureOpener opener() {
        return [this]() -> std::expected<camera::OpenCapture, std::string> {
            ++attempts;
            if (refusesToOpen) return std::unexpected("the camera is busy");
            return camera::OpenCapture{.source = std::make_unique<Frames>(*this),
                                       .finder = [this](const camera::Frame&) { return face(); }};
        };
    }

private:
    struct Frames final : camera::FrameSource {
        explicit Frames(ScriptedCamera& device) : camera(device) { ++camera.opened; }
        ~Frames() override { ++camera.closed; }

        std::expected<bool, std::string> next(std::chrono::milliseconds patience,
                                              const std::function<void(const camera::Frame&)>& look) override {
            if (camera.isUnplugged) return std::unexpected("the camera is gone");
            if (camera.stalls) {
                std::this_thread::sleep_for(patience);
                ++camera.waits;
                return false;
            }
            ++camera.frames;
            look({.width = camera.width, .height = 480, .pixels = {}});
            return true;
        }

        ScriptedCamera& camera;
    };

    std::optional<platform::Anchor> face() const {
        if (!showsFace) return std::nullopt;
        constexpr auto here = platform::Transform::identity();
        platform::Anchor anchor{.transform = here, .face = platform::Anchor::Face{here, here}};
        anchor.transform.columns[14] = -depth;
        return anchor;
    }
};

/// Runs a pipeline that writes a file to its end.
inline void record(const std::string& pipeline, const std::filesystem::path& file) {
    gst_init(nullptr, nullptr);
    GstElement* running =
        gst_parse_launch((pipeline + " ! filesink location=\"" + file.string() + '"').c_str(), nullptr);
    ASSERT_NE(running, nullptr) << pipeline;
    gst_element_set_state(running, GST_STATE_PLAYING);
    GstBus* bus = gst_element_get_bus(running);
    GstMessage* end = gst_bus_timed_pop_filtered(bus, 20 * GST_SECOND,
                                                 static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR));
    EXPECT_TRUE(end != nullptr && GST_MESSAGE_TYPE(end) == GST_MESSAGE_EOS) << pipeline;
    if (end != nullptr) gst_message_unref(end);
    gst_object_unref(bus);
    gst_element_set_state(running, GST_STATE_NULL);
    gst_object_unref(running);
}

}  // namespace tarvex::test
