#pragma once

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace tarvex::platform {

/// Stops the threads of all `Owner` objects when the process exits, before its libraries are torn down. Thread-safe.
///
/// `Owner` has `exitGrace`, the longest time that the exit waits for all of them together, and two functions:
/// `stopForExit()` orders its threads to stop and does not wait; `awaitStop(deadline)` waits for them. Neither is
/// called in a process that was forked and has begun no thread of its own.
template <typename Owner>
class ExitParking {
public:
    /// To be called in the constructor, after the exit handlers of libraries that the threads use are registered: exit
    /// handlers run backwards. False once the process exits.
    static bool add(Owner& owner) {
        [[maybe_unused]] static const int registered = std::atexit(&stopAll);
        const std::lock_guard lock(live().mutex);
        live().owners.push_back(&owner);
        return !live().exiting;
    }

    /// To be called before the owner's threads end for another reason.
    static void remove(Owner& owner) {
        const std::lock_guard lock(live().mutex);
        std::erase(live().owners, &owner);
    }

    /// To be called whenever a thread of an owner begins.
    static void threadBegins() { live().process = getpid(); }

private:
    struct Live {
        std::mutex mutex;
        std::vector<Owner*> owners;
        bool exiting = false;
        std::atomic<pid_t> process = 0;  ///< that a thread was last begun in
    };

    // Never destroyed: the process's exit handler uses it.
    static Live& live() {
        static auto* const live = new Live;
        return *live;
    }

    static void stopAll() {
        if (getpid() != live().process) return;
        const auto deadline = std::chrono::steady_clock::now() + Owner::exitGrace;
        const std::lock_guard lock(live().mutex);
        live().exiting = true;
        for (Owner* owner : live().owners)
            owner->stopForExit();
        for (Owner* owner : live().owners)
            owner->awaitStop(deadline);
    }
};

}  // namespace tarvex::platform
