#include "virtual_screen.h"

#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include "session_bus.h"

namespace tarvex::test {

namespace {

using Launcher = std::unique_ptr<GSubprocessLauncher, decltype([](GSubprocessLauncher* l) { g_object_unref(l); })>;

void setEnvironment(const std::filesystem::path& home) {
    for (const auto& [name, value] :
         std::initializer_list<std::pair<const char*, std::string>>{{"GDK_BACKEND", "x11"},
                                                                    {"GSK_RENDERER", "cairo"},
                                                                    {"GDK_DEBUG", "gl-disable"},
                                                                    {"GSETTINGS_BACKEND", "memory"},
                                                                    {"HOME", home},
                                                                    {"XDG_CONFIG_HOME", home / "config"},
                                                                    {"XDG_CACHE_HOME", home / "cache"},
                                                                    {"XDG_DATA_HOME", home / "data"},
                                                                    {"XDG_RUNTIME_DIR", home},
                                                                    {"LC_ALL", "C.UTF-8"}})
        ::setenv(name, value.c_str(), 1);
    ::setenv("GTK_A11Y", "none", 0);
    for (const char* name : {"AT_SPI_BUS_ADDRESS", "WAYLAND_DISPLAY"})
        ::unsetenv(name);
}

GSubprocess* start(GSubprocessLauncher* launcher, const std::vector<std::string>& command) {
    std::vector<const char*> words;
    for (const std::string& word : command)
        words.push_back(word.c_str());
    words.push_back(nullptr);
    GSubprocess* process = g_subprocess_launcher_spawnv(launcher, words.data(), nullptr);
    if (process == nullptr) throw std::runtime_error(command.front() + " does not start");
    return process;
}

}  // namespace

void VirtualScreen::Stop::operator()(GSubprocess* process) const {
    g_subprocess_force_exit(process);
    g_subprocess_wait(process, nullptr, nullptr);
    g_object_unref(process);
}

VirtualScreen::VirtualScreen() {
    requirePrograms({"Xvfb", "openbox", "xdotool"});
    setEnvironment(home_.path());
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) throw std::runtime_error("pipe");
    const Launcher launcher(g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_STDERR_SILENCE));
    g_subprocess_launcher_take_fd(launcher.get(), ends[1], 3);
    // Without -noreset the server starts anew whenever its last client leaves, and the next one may meet it then.
    server_.reset(test::start(
        launcher.get(), {"Xvfb", "-displayfd", "3", "-screen", "0", "1280x1024x24", "-nolisten", "tcp", "-noreset"}));
    g_subprocess_launcher_close(launcher.get());
    std::string display = ":";
    for (char digit = 0; read(ends[0], &digit, 1) == 1 && digit != '\n';)
        display += digit;
    close(ends[0]);
    if (display == ":") throw std::runtime_error("the X server gives no display");
    ::setenv("DISPLAY", display.c_str(), 1);

    // Until its start is complete, it takes the focus from windows that are shown meanwhile.
    const std::filesystem::path started = home_.path() / "started";
    windowManager_ = start({"openbox", "--sm-disable", "--startup", "touch " + started.string()});
    for (int tries = 0; tries < 1000 && !std::filesystem::exists(started); ++tries)
        g_usleep(20'000);
    if (!std::filesystem::exists(started)) throw std::runtime_error("the window manager does not start");
}

VirtualScreen::~VirtualScreen() = default;

VirtualScreen::Process VirtualScreen::start(const std::vector<std::string>& command) {
    const Launcher silent(g_subprocess_launcher_new(
        static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_SILENCE | G_SUBPROCESS_FLAGS_STDERR_SILENCE)));
    return Process(test::start(silent.get(), command));
}

std::string VirtualScreen::run(const std::vector<std::string>& command) {
    const Launcher launcher(g_subprocess_launcher_new(
        static_cast<GSubprocessFlags>(G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_SILENCE)));
    GSubprocess* process = test::start(launcher.get(), command);
    struct Output {
        std::string text;
        bool complete = false;
    } output;
    g_subprocess_communicate_utf8_async(
        process, nullptr, nullptr,
        [](GObject* source, GAsyncResult* result, gpointer data) {
            char* text = nullptr;
            g_subprocess_communicate_utf8_finish(G_SUBPROCESS(source), result, &text, nullptr, nullptr);
            auto* finished = static_cast<Output*>(data);
            finished->text = text != nullptr ? text : "";
            finished->complete = true;
            g_free(text);
        },
        &output);
    while (!output.complete)
        g_main_context_iteration(nullptr, TRUE);
    g_object_unref(process);
    return output.text;
}

}  // namespace tarvex::test
