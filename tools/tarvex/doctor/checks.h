#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "doctor/doctor.h"
#include "doctor/finding.h"
#include "platform/curl/curl_url_session.h"

namespace tarvex::tool {

// What each part of a host needs. All of it only looks; none of it opens a camera's stream or a dialog.

/// The host's Info.plist, and what it must name.
Findings checkBundle(const Host& host, bool measuresDistance);

/// The directory of the data, its permissions and room; the store and the consent in it.
Findings checkData(const Host& host, const Examination& examination);

/// Every light sensor of the kernel's tree and what its attributes read; all are looked at side by side.
Findings checkLightSensors(const std::filesystem::path& root,
                           std::chrono::milliseconds patience = std::chrono::seconds(3));

/// The video devices in the directory, and the rights on them.
Findings checkVideoDevices(const std::filesystem::path& devices);

/// The cameras as a host finds them. One note in a program without the camera.
Findings checkCameras();

/// The networks beside the library. Nothing in a program without the camera.
Findings checkFaceModels();
Findings checkFaceModels(const std::filesystem::path& directory);

/// GStreamer's elements that a camera needs, and the Debian packages that bring them; its first start, which looks at
/// every plug-in, takes seconds. Nothing in a program without the camera.
Findings checkElements(std::chrono::milliseconds patience = std::chrono::seconds(20));

/// The desktop's portal, and the answer about the camera that it keeps for the host. It is waited for that long for
/// each of its answers.
Findings checkPortal(const Host& host, std::chrono::milliseconds patience = std::chrono::seconds(5));

/// Whether a host runs, and what can be seen of its main loop from outside.
Findings checkMainLoop(const Host& host);
Findings checkMainLoop(std::optional<pid_t> process, const std::filesystem::path& processes);

/// The backend. The connection is shaken hands over and closed: nothing is requested or sent.
struct Backend {
    std::string host = defaultHost();
    platform::CurlTransportOptions transport = {};
    std::chrono::milliseconds limit = std::chrono::seconds(10);

    static std::string defaultHost();
};
Findings checkBackend(const Backend& backend);

}  // namespace tarvex::tool
