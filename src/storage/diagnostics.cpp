#include "storage/diagnostics.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string_view>

namespace tarvex {

namespace {

/// Keeps the signal of a closed pipe from the thread, and takes it away again when it came meanwhile.
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

}  // namespace

void fatalStop(const std::string& message) {
    std::cerr << "Fatal error: " + message + ": file PersistenceController\n" << std::flush;
    std::abort();
}

void printLine(std::string line) noexcept {
    const NoBrokenPipeSignal silence;
    line += '\n';
    for (std::string_view rest = line; !rest.empty();) {
        const ssize_t written = ::write(STDOUT_FILENO, rest.data(), rest.size());
        if (written < 0 && errno != EINTR) return;
        if (written > 0) rest.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace tarvex
