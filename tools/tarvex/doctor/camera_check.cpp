#include <gst/gst.h>

#include <array>
#include <utility>

#include "doctor/checks.h"
#include "platform/camera/camera_options.h"
#include "platform/camera/pipewire/pipewire_remote.h"
#include "platform/camera/user_camera.h"
#include "platform/camera/vision/face_models.h"
#include "platform/shared/handle.h"

namespace tarvex::tool {
namespace {

constexpr auto patience = std::chrono::milliseconds(900);

Finding pipeWire() {
    constexpr const char* what = "PipeWire";
    const auto remote = camera::PipeWireRemote::connect();
    if (!remote)
        return note(what, "it does not run for this user: the host opens the device itself",
                    "where the desktop has it: systemctl --user start pipewire wireplumber");
    const auto cameras = (*remote)->cameras(patience);
    if (!cameras) return bad(what, cameras.error(), "systemctl --user restart pipewire wireplumber");
    if (cameras->empty())
        return note(what, "it runs, and has no camera",
                    "its session manager finds them: systemctl --user restart wireplumber");
    std::string names;
    for (const auto& one : *cameras)
        names += (names.empty() ? "" : ", ") + one.name;
    return good(what, "its cameras: " + names);
}

Finding userCamera() {
    constexpr const char* what = "camera";
    const auto names = camera::userCameraNames();
    if (!names) return bad(what, names.error(), "see the desktop portal, below");
    if (names->empty()) {
        const auto usable = camera::checkUserCamera();
        return bad(what, "a host finds none" + (usable ? " that takes pictures" : ": " + usable.error()),
                   "attach one, and see: tarvex calibrate --list");
    }
    return good(what, "a host takes \"" + names->front() + "\", of " + std::to_string(names->size()));
}

Finding model(const std::filesystem::path& directory, const camera::FaceModelFile& file) {
    const auto bytes = camera::readFaceModel(directory, file);
    const std::string what = std::string("model ") + file.name;
    if (bytes) return good(what, "it is in " + directory.string() + ", and its SHA-256 is the right one");
    return bad(
        what, bytes.error(),
        "fetch the models in the project's folder, scripts/fetch-models, and install anew; or copy them: sudo cp "
        "build/face_models/* " +
            directory.string());
}

}  // namespace

Findings checkElement(const std::string& element, const std::string& package) {
    const std::string what = "GStreamer's " + element;
    if (gst_init_check(nullptr, nullptr, nullptr) == FALSE)
        return {bad(what, "GStreamer does not start", "sudo apt install --reinstall libgstreamer1.0-0")};
    const platform::Handle<GstElementFactory, gst_object_unref> factory(gst_element_factory_find(element.c_str()));
    if (factory) return {good(what, "it is there")};
    return {bad(what, "it is missing", "sudo apt install " + package)};
}

Findings checkCameras() {
    Findings findings{pipeWire(), userCamera()};
    static constexpr std::array<std::pair<const char*, const char*>, 6> needed{
        {{"appsrc", "gstreamer1.0-plugins-base"},
         {"appsink", "gstreamer1.0-plugins-base"},
         {"decodebin", "gstreamer1.0-plugins-base"},
         {"videoconvert", "gstreamer1.0-plugins-base"},
         {"jpegdec", "gstreamer1.0-plugins-good"},
         {"v4l2src", "gstreamer1.0-plugins-good"}}};
    for (const auto& [element, package] : needed)
        findings.push_back(checkElement(element, package).front());
    return findings;
}

Findings checkFaceModels() {
    return checkFaceModels(camera::modelDirectoryOf({}));
}

Findings checkFaceModels(const std::filesystem::path& directory) {
    return {model(directory, camera::detectorModel), model(directory, camera::meshModel)};
}

}  // namespace tarvex::tool
