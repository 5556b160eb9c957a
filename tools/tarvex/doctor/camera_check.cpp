#include <gst/gst.h>

#include <array>
#include <cstdlib>
#include <utility>

#include "doctor/checks.h"
#include "doctor/separate_look.h"
#include "platform/camera/camera_options.h"
#include "platform/camera/pipewire/pipewire_remote.h"
#include "platform/camera/user_camera.h"
#include "platform/camera/vision/face_models.h"
#include "platform/shared/handle.h"

namespace tarvex::tool {
namespace {

constexpr auto patienceWithPipeWire = std::chrono::milliseconds(900);

Finding pipeWire() {
    constexpr const char* what = "PipeWire";
    const auto remote = camera::PipeWireRemote::connect();
    if (!remote)
        return note(what, "it does not run for this user: the host opens the device itself",
                    "where the desktop has it: systemctl --user start pipewire wireplumber");
    const auto cameras = (*remote)->cameras(patienceWithPipeWire);
    if (!cameras)
        return bad(what, "it runs, and does not say which cameras there are: " + cameras.error(),
                   "systemctl --user restart pipewire wireplumber");
    if (cameras->empty())
        return note(what, "it runs, and has no camera",
                    "its session manager finds them: systemctl --user restart wireplumber");
    std::string names;
    for (const auto& one : *cameras)
        names += (names.empty() ? "" : ", ") + one.name;
    return good(what, "its cameras: " + names);
}

Finding userCamera(const Finding& pipeWire) {
    constexpr const char* what = "camera";
    const auto names = camera::userCameraNames();
    if (!names) return bad(what, names.error(), "see the desktop portal, below");
    if (names->empty() && pipeWire.state == Finding::State::bad)
        return bad(what, "a host finds none, as PipeWire does not say which there are", "see PipeWire, above");
    if (names->empty()) {
        const auto usable = camera::checkUserCamera();
        return bad(what, "a host finds none" + (usable ? " that takes pictures" : ": " + usable.error()),
                   "attach one, and see: tarvex calibrate --list");
    }
    return good(what, "a host takes \"" + names->front() + "\", " +
                          (names->size() == 1 ? "the only one" : "of " + std::to_string(names->size())));
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

constexpr std::array<std::pair<const char*, const char*>, 6> neededElements{
    {{"appsrc", "gstreamer1.0-plugins-base"},
     {"appsink", "gstreamer1.0-plugins-base"},
     {"decodebin", "gstreamer1.0-plugins-base"},
     {"videoconvert", "gstreamer1.0-plugins-base"},
     {"jpegdec", "gstreamer1.0-plugins-good"},
     {"v4l2src", "gstreamer1.0-plugins-good"}}};

/// What the environment says of where GStreamer finds its elements, as a hint behind a remedy; mostly empty.
std::string gStreamersEnvironment() {
    std::string names;
    for (const char* name : {"GST_PLUGIN_SYSTEM_PATH", "GST_PLUGIN_SYSTEM_PATH_1_0", "GST_PLUGIN_PATH",
                             "GST_PLUGIN_PATH_1_0", "GST_PLUGIN_SCANNER", "GST_REGISTRY", "GST_REGISTRY_1_0"})
        if (std::getenv(name) != nullptr) names += std::string(names.empty() ? "" : " ") + name;
    return names.empty() ? "" : "; or this environment leads it astray: unset " + names;
}

Finding elementFinding(const char* element, const char* package) {
    const std::string what = std::string("GStreamer's ") + element;
    const platform::Handle<GstElementFactory, gst_object_unref> factory(gst_element_factory_find(element));
    if (factory) return good(what, "it is there");
    return bad(what, "it is missing", std::string("sudo apt install ") + package + gStreamersEnvironment());
}

}  // namespace

Findings checkElements(std::chrono::milliseconds patience) {
    constexpr const char* what = "GStreamer";
    SeparateLook look([]() -> Findings {
        if (gst_init_check(nullptr, nullptr, nullptr) == FALSE)
            return {bad(what, "it does not start",
                        "sudo apt install --reinstall libgstreamer1.0-0" + gStreamersEnvironment())};
        Findings findings;
        for (const auto& [element, package] : neededElements)
            findings.push_back(elementFinding(element, package));
        return findings;
    });
    if (auto findings = look.findings(std::chrono::steady_clock::now() + patience)) return *std::move(findings);
    return {bad(what, "it does not end its start, in which it looks for its plug-ins",
                "see which of them holds it up: GST_DEBUG=GST_PLUGIN_LOADING:5 gst-inspect-1.0 appsrc" +
                    gStreamersEnvironment())};
}

Findings checkCameras() {
    Findings findings{pipeWire()};
    findings.push_back(userCamera(findings.front()));
    return findings;
}

Findings checkFaceModels() {
    return checkFaceModels(camera::modelDirectoryOf({}));
}

Findings checkFaceModels(const std::filesystem::path& directory) {
    return {model(directory, camera::detectorModel), model(directory, camera::meshModel)};
}

}  // namespace tarvex::tool
