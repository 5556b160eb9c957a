#pragma once

#include <gst/gst.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

namespace tarvex::test {

/// Runs a pipeline that writes a file to its end.
inline void record(const std::string& pipeline, const std::filesystem::path& file) {
    gst_init(nullptr, nullptr);
    GstElement* running = gst_parse_launch((pipeline + " ! filesink location=" + file.string()).c_str(), nullptr);
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
