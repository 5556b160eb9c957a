#pragma once

#include <gio/gio.h>
#include <sys/prctl.h>

#include <csignal>

#include "platform/shared/handle.h"
#include "prelude.h"

namespace tarvex::test {

/// A program that a test has started. It has none of the test's own output open, or whoever reads that would wait for
/// it; it ends with this object, and with the test.
class RunningProgram {
public:
    /// What it prints goes to the log.
    explicit RunningProgram(const std::vector<std::string>& command, const std::string& log = "/dev/null")
        : RunningProgram(command, [&log](GSubprocessLauncher* launcher) {
              g_subprocess_launcher_set_stdout_file_path(launcher, log.c_str());
          }) {}
    /// What it prints is read here.
    static RunningProgram piped(const std::vector<std::string>& command) {
        return {command, [](GSubprocessLauncher* launcher) {
                    g_subprocess_launcher_set_flags(launcher, G_SUBPROCESS_FLAGS_STDOUT_PIPE);
                }};
    }
    ~RunningProgram() { end(); }
    RunningProgram(RunningProgram&&) = default;
    RunningProgram& operator=(RunningProgram&&) = delete;

    void signal(int number) const { g_subprocess_send_signal(process_.get(), number); }
    void end() {
        if (!process_) return;
        g_subprocess_force_exit(process_.get());
        g_subprocess_wait(process_.get(), nullptr, nullptr);
        process_.reset();
    }

    /// Needs the main loop, which hears of it.
    bool hasEnded() const { return g_subprocess_get_identifier(process_.get()) == nullptr; }
    bool hasSucceeded() const {
        return hasEnded() && g_subprocess_get_if_exited(process_.get()) != 0 &&
               g_subprocess_get_exit_status(process_.get()) == 0;
    }

    /// Of a piped program; waits for it.
    std::string firstLine() const {
        GInputStream* output = g_subprocess_get_stdout_pipe(process_.get());
        std::string line;
        for (char letter = 0; g_input_stream_read(output, &letter, 1, nullptr, nullptr) == 1 && letter != '\n';)
            line += letter;
        return line;
    }
    /// All that a piped program prints until its end, which this waits for.
    std::string output() const {
        char* text = nullptr;
        g_subprocess_communicate_utf8(process_.get(), nullptr, nullptr, &text, nullptr, nullptr);
        const platform::Handle<char, g_free> owner(text);
        return text != nullptr ? text : "";
    }

private:
    RunningProgram(const std::vector<std::string>& command, const std::function<void(GSubprocessLauncher*)>& direct) {
        std::vector<const char*> words;
        words.reserve(command.size() + 1);
        for (const std::string& word : command)
            words.push_back(word.c_str());
        words.push_back(nullptr);
        const platform::Handle<GSubprocessLauncher, g_object_unref> launcher(
            g_subprocess_launcher_new(G_SUBPROCESS_FLAGS_NONE));
        direct(launcher.get());
        g_subprocess_launcher_set_stderr_file_path(launcher.get(), "/dev/null");
        g_subprocess_launcher_set_child_setup(
            launcher.get(), [](gpointer) { ::prctl(PR_SET_PDEATHSIG, SIGKILL); }, nullptr, nullptr);
        process_.reset(g_subprocess_launcher_spawnv(launcher.get(), words.data(), nullptr));
        if (!process_) throw std::runtime_error(command.front() + " does not start");
    }

    platform::Handle<GSubprocess, g_object_unref> process_;
};

}  // namespace tarvex::test
