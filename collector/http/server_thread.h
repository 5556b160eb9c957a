#pragma once

#include <pthread.h>

#include <csignal>

namespace tarvex::collector {

/// Called first on each thread of the server: names it, with at most 15 characters, and leaves the program's signals to
/// the program's threads, but those of a fault of the thread itself.
inline void beginServerThread(const char* name) {
    pthread_setname_np(pthread_self(), name);
    sigset_t signals;
    sigfillset(&signals);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP, SIGSYS})
        sigdelset(&signals, fault);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace tarvex::collector
