// The study application as a process of its own, driven like a person does it, sharing with the collector.

#include "consent_window.h"
#include "prelude.h"
#include "virtual_screen.h"

namespace tarvex {
namespace {

using namespace test;
using ::testing::HasSubstr;

struct Kill {
    void operator()(GSubprocess* process) const {
        g_subprocess_force_exit(process);
        g_object_unref(process);
    }
};
using Process = std::unique_ptr<GSubprocess, Kill>;

template <typename... Words>
Process start(Words... words) {
    return Process(g_subprocess_new(G_SUBPROCESS_FLAGS_STDOUT_SILENCE, nullptr, words..., nullptr));
}

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(GtkHost, AsksMeasuresAndUploadsWhenItIsMinimised) {
    const VirtualScreen screen;
    const TemporaryDirectory directory;
    const std::string collector = directory.path() / "collector";
    const std::string data = directory.path() / "data";
    std::filesystem::create_directory(collector);
    const Process backend = start(TARVEX_COLLECTOR, "--directory", collector.c_str());
    ASSERT_TRUE(runUntil([&] { return !contents(collector + "/port").empty(); }));
    const Process host = start(TARVEX_GTK_HOST, "--data", data.c_str(), "--collector", collector.c_str(), "--recording",
                               TARVEX_RECORDING);

    std::string window;
    ASSERT_TRUE(runUntil([&] {
        std::istringstream(VirtualScreen::run({"xdotool", "search", "--name", "Light Study"})) >> window;
        return !window.empty();
    }));
    runFor(1000ms);
    VirtualScreen::run(
        {"xdotool", "windowactivate", window, "mousemove", "--window", window, "200", "720", "click", "1"});
    runFor(4500ms);
    EXPECT_TRUE(contents(collector + "/document-1.json").empty()) << "nothing is shared while it is in front";
    VirtualScreen::run({"xdotool", "windowminimize", window});
    EXPECT_TRUE(runUntil([&] { return contents(collector + "/document-1.json").ends_with('}'); }));
    EXPECT_THAT(contents(collector + "/document-1.json"), HasSubstr(R"("type":"ambient_light")"));

    VirtualScreen::run({"xdotool", "windowactivate", window});
    runFor(500ms);
    ConsentWindow::key("alt+F4");
    EXPECT_TRUE(runUntil([&] { return g_subprocess_get_identifier(host.get()) == nullptr; }));
    EXPECT_TRUE(g_subprocess_get_if_exited(host.get()) && g_subprocess_get_exit_status(host.get()) == 0);
}

}  // namespace
}  // namespace tarvex
