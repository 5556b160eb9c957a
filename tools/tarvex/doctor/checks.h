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

/// Every light sensor of the kernel's tree and what its attributes read; three seconds at most for each.
Findings checkLightSensors(const std::filesystem::path& root);

/// The video devices in the directory, and the rights on them.
Findings checkVideoDevices(const std::filesystem::path& devices);

/// The cameras as a host finds them, and what GStreamer needs for them. One note in a program without the camera.
Findings checkCameras();

/// The networks beside the library. Nothing in a program without the camera.
Findings checkFaceModels();
Findings checkFaceModels(const std::filesystem::path& directory);

/// One element of GStreamer, and the Debian package that brings it. Nothing in a program without the camera.
Findings checkElement(const std::string& element, const std::string& package);

/// The desktop's portal, and the answer about the camera that it keeps for the host.
Findings checkPortal(const Host& host);

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
