#pragma once

#include <pthread.h>

#include <csignal>

namespace tarvex::platform {

/// Called first on each thread of the library: sets a name of at most 15 characters that a debugger shows, and leaves
/// the host's signals to the host's threads. The SIGPIPE of a closed connection is dropped.
inline void beginLibraryThread(const char* name) {
    pthread_setname_np(pthread_self(), name);
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
        sigdelset(&signals, fault);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace tarvex::platform
