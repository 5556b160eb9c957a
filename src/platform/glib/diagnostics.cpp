#include "tarvex/platform/diagnostics.h"

#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <string_view>
#include <utility>

namespace tarvex::platform {

namespace {

/// Blocks the signal of a closed pipe on this thread, and discards one that came meanwhile.
class NoBrokenPipeSignal {
public:
    NoBrokenPipeSignal() {
        sigemptyset(&brokenPipe_);
        sigaddset(&brokenPipe_, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &brokenPipe_, &previous_);
    }
    ~NoBrokenPipeSignal() {
        constexpr timespec atOnce{};
        if (!wasPending_) sigtimedwait(&brokenPipe_, nullptr, &atOnce);
        pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
    }
    NoBrokenPipeSignal(const NoBrokenPipeSignal&) = delete;
    NoBrokenPipeSignal& operator=(const NoBrokenPipeSignal&) = delete;

private:
    sigset_t brokenPipe_{};
    sigset_t previous_{};
    bool wasPending_ = false;
};

void write(int descriptor, std::string line) {
    const NoBrokenPipeSignal silence;
    line += '\n';
    for (std::string_view rest = line; !rest.empty();) {
        const ssize_t written = ::write(descriptor, rest.data(), rest.size());
        if (written < 0 && errno != EINTR) return;
        if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
    }
}

void log(GLogLevelFlags level, const std::string& text) {
    const NoBrokenPipeSignal silence;
    g_log("Tarvex", level, "%s", text.c_str());
}

}  // namespace

void logWarning(const std::string& text) noexcept {
    log(G_LOG_LEVEL_WARNING, text);
}

void logDebug(const std::string& text) noexcept {
    log(G_LOG_LEVEL_DEBUG, text);
}

void writeOutputLine(std::string line) noexcept {
    write(STDOUT_FILENO, std::move(line));
}

void writeErrorLine(std::string line) noexcept {
    write(STDERR_FILENO, std::move(line));
}

}  // namespace tarvex::platform
