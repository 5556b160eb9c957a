#include <fstream>
#include <iterator>

#include "doctor/checks.h"
#include "platform/portal/video_devices.h"
#include "store/stored_files.h"

namespace tarvex::tool {
namespace {

std::string contentsOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

Findings checkVideoDevices(const std::filesystem::path& devices) {
    const auto nodes = platform::videoDeviceNodes(devices);
    if (nodes.empty())
        return {
            bad("video device", "there is none in " + devices.string(),
                "attach a camera, or load its driver: sudo modprobe uvcvideo; a host that measures light alone needs "
                "none (--measures light)")};
    Findings findings;
    for (const auto& node : nodes) {
        if (platform::mayOpen(node))
            findings.push_back(good("video device " + node.string(), "this user may open it"));
        else
            findings.push_back(bad("video device " + node.string(), "this user may not open it",
                                   "sudo usermod --append --groups video \"$USER\", and log in anew"));
    }
    return findings;
}

Findings checkMainLoop(const Host& host) {
    const auto data = dataDirectoryOf(host);
    if (!data) return {};
    return checkMainLoop(processThatUses(*data / storeName), "/proc");
}

Findings checkMainLoop(std::optional<pid_t> process, const std::filesystem::path& processes) {
    constexpr const char* what = "main loop";
    constexpr const char* journal =
        "a loop that does not run is a warning of the host's, ten seconds after its start: journalctl "
        "GLIB_DOMAIN=Tarvex";
    if (!process)
        return {note(what, "no host has the store open, so that there is nothing to see of one",
                     "start the host, and run this again")};
    const std::string number = std::to_string(*process);
    const std::string environment = '\0' + contentsOf(processes / number / "environ");
    const auto choice = environment.find(std::string("\0QT_NO_GLIB=", 12));
    if (choice != std::string::npos && environment[choice + 12] != '\0')
        return {bad(what,
                    "process " + number +
                        " was started with QT_NO_GLIB: Qt then runs no loop of GLib's, and no "
                        "sample is ever taken",
                    "start the host without it: env --unset=QT_NO_GLIB HOST")};
    return {note(what,
                 (*process > 0 ? "process " + number : "A process") +
                     " has the store open; whether its main loop runs cannot be seen from outside",
                 journal)};
}

}  // namespace tarvex::tool
