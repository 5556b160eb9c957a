#pragma once

#include <pthread.h>

#include <csignal>

namespace tarvex::collector {

/// Called first on each thread but the main one: sets a name of at most 15 characters, and leaves the signals to the
/// main thread.
inline void beginThread(const char* name) {
    pthread_setname_np(pthread_self(), name);
    sigset_t signals;
    sigfillset(&signals);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

}  // namespace tarvex::collector
