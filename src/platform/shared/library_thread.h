#pragma once

#include <pthread.h>

#include <csignal>

namespace tarvex::platform {

/// What each thread of the library begins with: a name of at most 15 characters that a debugger shows, and the host's
/// signals left to the host's threads. A closed connection's SIGPIPE is for nobody.
inline void beginLibraryThread(const char* name) {
    pthread_setname_np(pthread_self(), name);
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
        sigdelset(&signals, fault);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace tarvex::platform
