#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include "prelude.h"
#include "running_program.h"
#include "session_bus.h"

namespace tarvex::test {

/// PipeWire and WirePlumber themselves, on a session bus and in a runtime directory of the test's own, which its
/// process takes for its user's. Without a camera at first.
class LivePipeWire {
public:
    LivePipeWire() {
        requirePrograms({"pipewire", "wireplumber"});
        for (const char* variable : {"XDG_RUNTIME_DIR", "XDG_CONFIG_HOME", "XDG_STATE_HOME"})
            ::setenv(variable, directory_.path().c_str(), 1);
        ::unsetenv("PIPEWIRE_RUNTIME_DIR");
        daemon.emplace(std::vector<std::string>{"pipewire"});
        if (!eventually([&] { return std::filesystem::exists(socket()); }))
            throw std::runtime_error("PipeWire does not start");
        manager_.emplace(managerCommand());
    }
    ~LivePipeWire() { manager_.reset(); }
    LivePipeWire(const LivePipeWire&) = delete;
    LivePipeWire& operator=(const LivePipeWire&) = delete;

    std::filesystem::path socket() const { return directory_.path() / "pipewire-0"; }

    /// A connection to the daemon, as a portal opens one.
    int connect() const {
        const int descriptor = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const std::string path = socket();
        std::ranges::copy(path, std::begin(address.sun_path));
        if (::connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("PipeWire takes no connection");
        return descriptor;
    }

    struct Shown {
        std::string format = "YUY2";
        std::pair<int, int> size = {640, 480};
        std::string location = "-";     ///< as libcamera says it
        std::string file = "";          ///< one frame's bytes; an even grey without one
        std::string log = "/dev/null";  ///< gets a line each time the camera has been open: from when until when, in ms
    };

    static RunningProgram camera(const std::string& name, const Shown& shown) {
        return RunningProgram({TARVEX_SIMULATED_CAMERA, name, shown.format, std::to_string(shown.size.first),
                               std::to_string(shown.size.second), shown.location, shown.file},
                              shown.log);
    }
    static RunningProgram camera(const std::string& name) { return camera(name, {}); }

    std::optional<RunningProgram> daemon;

private:
    /// Without what needs a seat, which a test need not have: until version 0.5, the configuration has it as a line.
    std::vector<std::string> managerCommand() const {
        const std::filesystem::path installed = "/usr/share/wireplumber";
        if (!std::filesystem::exists(installed / "policy.lua.d")) return {"wireplumber", "-p", "video-only"};
        const auto own = directory_.path() / "wireplumber";
        std::filesystem::create_directory(own);
        for (const char* part : {"common", "main.lua.d", "policy.lua.d", "scripts"})
            std::filesystem::create_symlink(installed / part, own / part);
        std::ifstream lines(installed / "wireplumber.conf");
        std::ofstream kept(own / "wireplumber.conf");
        for (std::string line; std::getline(lines, line);)
            if (!line.contains("bluetooth")) kept << line << '\n';
        ::setenv("WIREPLUMBER_CONFIG_DIR", own.c_str(), 1);
        return {"wireplumber"};
    }

    SessionBus bus_;  // WirePlumber does not live without one
    TemporaryDirectory directory_;
    std::optional<RunningProgram> manager_;
};

}  // namespace tarvex::test
