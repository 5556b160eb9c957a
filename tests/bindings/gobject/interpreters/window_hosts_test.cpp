// The example hosts with a window, each as a process of its own on a virtual screen, used like a person does it.

#include "host_process.h"
#include "screen.h"
#include "tarvex/data_entry.h"
#include "tarvex/platform/platform.h"

namespace tarvex {
namespace {

using namespace test;

/// One run of a host, from its window to its end.
class WindowRun {
public:
    WindowRun(const ExampleHost& host, const HostSurroundings& surroundings)
        : log_(surroundings.home() / "log"),
          program_({"sh", "-c",
                    "exec env " + surroundings.environment() + " GI_TYPELIB_PATH='" +
                        TARVEX_LIBRARIES "/girepository-1.0' " + host.command + " >>'" + log_.string() + "' 2>&1"}) {
        const bool shown = runUntil([&] {
            std::istringstream(VirtualScreen::run({"xdotool", "search", "--name", "Light Study"})) >> window_;
            return !window_.empty();
        });
        if (!shown) throw std::runtime_error("the host does not show its window: " + contentsOf(log_));
        runFor(1000ms);
    }

    void click(const char* x, const char* y) const {
        VirtualScreen::run(
            {"xdotool", "windowactivate", window_, "mousemove", "--window", window_, x, y, "click", "1"});
    }
    static void press(const char* key) { VirtualScreen::run({"xdotool", "key", key}); }
    void savePicture(const std::string& name) const {
        std::filesystem::create_directories(TARVEX_TEST_PICTURES);
        VirtualScreen::run({"import", "-window", window_, "-strip", TARVEX_TEST_PICTURES "/" + name + ".png"});
    }

    std::string output() const { return contentsOf(log_); }

    /// True when the process comes to a good end.
    bool endsWell() const {
        return runUntil([&] { return program_.hasEnded(); }) && program_.hasSucceeded();
    }

private:
    std::filesystem::path log_;
    std::string window_;
    RunningProgram program_;
};

std::int64_t recordsIn(const std::filesystem::path& data) {
    const auto platform = platform::Platform::makeLinux({.dataDirectory = data});
    const auto store = platform->objectStore().makeContainer("TrackingDataContainer");
    if (!store->loadPersistentStores()) throw std::runtime_error("the host's store cannot be opened");
    return store->viewContext().count(DataEntry::fetchRequest()).value();
}

class WindowHosts : public ::testing::TestWithParam<ExampleHost> {};

TEST_P(WindowHosts, AreRefusedAskSampleShareAndKeepNothing) {
    const VirtualScreen screen;
    const HostSurroundings surroundings;
    const std::filesystem::path data = surroundings.home() / GetParam().identifier;
    {
        const WindowRun refused(GetParam(), surroundings);
        refused.savePicture(std::string(GetParam().name) + "_consent");
        EXPECT_THAT(refused.output(), HasSubstr("The user has to consent to the tracking."));
        refused.click("390", "20");  // Cancel
        EXPECT_TRUE(refused.endsWell()) << refused.output();
        EXPECT_EQ(recordsIn(data), 0);
    }
    const WindowRun run(GetParam(), surroundings);
    run.click("200", "720");  // I consent
    EXPECT_TRUE(runUntil([&] { return recordsIn(data) >= 3; })) << run.output();
    runFor(300ms);
    run.savePicture(std::string(GetParam().name) + "_host");
    const auto documents = [&] {
        int number = 0;
        while (surroundings.document(number + 1).ends_with('}'))
            ++number;
        return number;
    };
    const int before = documents();
    WindowRun::press("space");  // Stop and share
    EXPECT_TRUE(runUntil([&] { return documents() > before && recordsIn(data) == 0; })) << run.output();
    EXPECT_THAT(surroundings.document(before + 1), HasSubstr(R"("lux":321)"));
    EXPECT_THAT(surroundings.document(before + 1), HasSubstr(GetParam().identifier));
    run.savePicture(std::string(GetParam().name) + "_shared");
    runFor(1500ms);
    EXPECT_EQ(recordsIn(data), 0) << "it has stopped";
    const int shared = documents();
    WindowRun::press("alt+F4");
    EXPECT_TRUE(run.endsWell()) << run.output();
    EXPECT_GT(documents(), shared) << "it went to the background";
}

INSTANTIATE_TEST_SUITE_P(Gobject, WindowHosts,
                         ::testing::Values(ExampleHost{.name = "python",
                                                       .command = TARVEX_PYTHON_HOST,
                                                       .identifier = "org.tarvex.PythonHost"},
                                           ExampleHost{.name = "javascript",
                                                       .command = TARVEX_JAVASCRIPT_HOST,
                                                       .identifier = "org.tarvex.JavaScriptHost"}),
                         [](const auto& host) { return host.param.name; });

}  // namespace
}  // namespace tarvex
