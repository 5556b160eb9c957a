#include "platform/camera/simulated_camera.h"

#include <gtest/gtest.h>

namespace tarvex::test {
namespace {

constexpr const char* cameraElement = "v4l2src";

std::string& simulatedPipeline() {
    static std::string pipeline;
    return pipeline;
}

void initializeClass(void* type, void* /*data*/) {
    // Taken as the real element takes it; which device it names makes no difference.
    const auto ignore = [](GObject*, guint, const GValue*, GParamSpec*) {};
    G_OBJECT_CLASS(type)->set_property = ignore;
    g_object_class_install_property(G_OBJECT_CLASS(type), 1,
                                    g_param_spec_string("device", nullptr, nullptr, nullptr, G_PARAM_WRITABLE));
    gst_element_class_add_pad_template(GST_ELEMENT_CLASS(type),
                                       gst_pad_template_new("src", GST_PAD_SRC, GST_PAD_ALWAYS, gst_caps_new_any()));
    gst_element_class_set_static_metadata(GST_ELEMENT_CLASS(type), "Simulated camera", "Source/Video",
                                          "Delivers what a pipeline does", "Tarvex");
}

void initialize(GTypeInstance* camera, void* /*type*/) {
    GError* error = nullptr;
    GstElement* inside = gst_parse_bin_from_description(simulatedPipeline().c_str(), TRUE, &error);
    ASSERT_NE(inside, nullptr) << error->message;
    gst_bin_add(GST_BIN(camera), inside);
    GstPad* pad = gst_element_get_static_pad(inside, "src");
    ASSERT_NE(pad, nullptr);
    gst_element_add_pad(GST_ELEMENT(camera), gst_ghost_pad_new("src", pad));
    gst_object_unref(pad);
}

GType simulatedCameraType() {
    static const GType type = g_type_register_static_simple(GST_TYPE_BIN, "TarvexSimulatedCamera", sizeof(GstBinClass),
                                                            initializeClass, sizeof(GstBin), initialize, {});
    return type;
}

}  // namespace

SimulatedCamera::SimulatedCamera(const std::string& pipeline) {
    gst_init(nullptr, nullptr);
    simulatedPipeline() = pipeline + " ! identity";  // an element to end with, where the pipeline ends with a format
    real_ = gst_registry_lookup_feature(gst_registry_get(), cameraElement);
    EXPECT_TRUE(gst_element_register(nullptr, cameraElement, GST_RANK_NONE, simulatedCameraType()));
}

SimulatedCamera::~SimulatedCamera() {
    GstRegistry* registry = gst_registry_get();
    if (GstPluginFeature* simulated = gst_registry_lookup_feature(registry, cameraElement)) {
        gst_registry_remove_feature(registry, simulated);
        gst_object_unref(simulated);
    }
    if (real_ != nullptr) gst_registry_add_feature(registry, real_);
}

}  // namespace tarvex::test
