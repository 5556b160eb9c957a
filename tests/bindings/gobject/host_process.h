#pragma once

#include <cstdio>
#include <string>

#include "platform/iio/sensor_tree.h"
#include "prelude.h"
#include "recording_backend.h"

namespace tarvex::test {

/// One of the examples, as a test runs it.
struct ExampleHost {
    const char* name;
    const char* command;  ///< in the words of a shell
    const char* identifier;

    friend void PrintTo(const ExampleHost& host, std::ostream* stream) { *stream << host.name; }
};

/// A light sensor, a backend and a home for the host of a test.
class HostSurroundings {
public:
    HostSurroundings() {
        tree.plug(0, "in_illuminance_input=321 in_intensity_both_raw=812");
        std::filesystem::create_directory(home());
    }

    /// The environment, in the words of a shell, of a process that measures and shares here. A critical message of GLib
    /// ends it. A sanitizer's library is not the first one, and the thread that asked for the camera is never joined.
    std::string environment() const {
        return R"(ASAN_OPTIONS="$ASAN_OPTIONS:verify_asan_link_order=0" )"
               R"(TSAN_OPTIONS="$TSAN_OPTIONS:report_thread_leaks=0" )"
               "LC_ALL=C.UTF-8 G_DEBUG=fatal-criticals "
               // By its name: a list of paths cannot have one with a space. Without it, nothing leaves the machine.
               "LD_PRELOAD=libhost_under_test.so LD_LIBRARY_PATH='" TARVEX_LIBRARIES
               "' https_proxy=http://127.0.0.1:9 "
               "XDG_DATA_HOME='" +
               home().string() + "' TARVEX_TEST_SENSORS='" + tree.root().string() + "' TARVEX_TEST_BACKEND='" +
               (directory_.path() / "backend").string() + "'";
    }

    std::filesystem::path home() const { return directory_.path() / "home"; }
    std::string document(int number) const {
        return contentsOf(directory_.path() / "backend" / ("document-" + std::to_string(number) + ".json"));
    }

    SensorTree tree;

private:
    TemporaryDirectory directory_;
    RecordingBackend backend_{{.directory = directory_.path() / "backend", .host = TARVEX_BACKEND_HOST},
                              [](const auto&) {}};
};

/// A program that has run to its end.
struct ProcessRun {
    explicit ProcessRun(const std::string& command) {
        FILE* pipe = popen(("exec 2>&1; " + command).c_str(), "r");
        if (pipe == nullptr) throw std::runtime_error("popen");
        std::array<char, 4096> part{};
        while (const std::size_t count = fread(part.data(), 1, part.size(), pipe))
            output.append(part.data(), count);
        status = pclose(pipe);
    }
    std::string output;
    int status = -1;  ///< as `wait` has it: 0 after a good end
};

}  // namespace tarvex::test
