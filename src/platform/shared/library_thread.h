#pragma once

#include <pthread.h>

#include <csignal>

namespace tarvex::platform {

/// The signals that are for the host's threads: all but those of a fault of the thread itself.
inline sigset_t hostSignals() {
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
        sigdelset(&signals, fault);
    return signals;
}

/// While it lives, the threads that the calling one starts, in whichever library, leave the host's signals alone.
class SignalsBlocked {
public:
    SignalsBlocked() {
        const sigset_t signals = hostSignals();
        pthread_sigmask(SIG_BLOCK, &signals, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

/// Called first on each thread of the library: sets a name of at most 15 characters that a debugger shows, and leaves
/// the host's signals to the host's threads. The SIGPIPE of a closed connection is dropped.
inline void beginLibraryThread(const char* name) {
    pthread_setname_np(pthread_self(), name);
    const sigset_t signals = hostSignals();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace tarvex::platform
