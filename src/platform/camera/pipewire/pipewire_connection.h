#pragma once

#include <pipewire/pipewire.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/shared/handle.h"

namespace tarvex::camera {

/// A connection to PipeWire's daemon, and the thread that serves it. Thread-safe.
class PipeWireConnection {
public:
    using Clock = std::chrono::steady_clock;

    /// Every call of libpipewire for this connection is made while one lives, or on the connection's thread.
    class Lock {
    public:
        explicit Lock(const PipeWireConnection& connection) : loop_(connection.loop_.get()) {
            pw_thread_loop_lock(loop_);
        }
        ~Lock() { pw_thread_loop_unlock(loop_); }
        Lock(const Lock&) = delete;
        Lock& operator=(const Lock&) = delete;

    private:
        pw_thread_loop* loop_;
    };

    /// Connects to the user's daemon, or to the one at the other end of the file descriptor, of which a duplicate is
    /// taken. Null when there is none.
    static std::shared_ptr<PipeWireConnection> open(std::optional<int> descriptor);
    ~PipeWireConnection();
    PipeWireConnection(const PipeWireConnection&) = delete;
    PipeWireConnection& operator=(const PipeWireConnection&) = delete;

    pw_core& core() const { return *core_; }

    /// Waits until the daemon has answered everything before this; false when it does not until then. Without a lock.
    bool catchUp(Clock::time_point deadline);

    /// Waits until the connection's thread is through with all that had been handed to it before. Without a lock.
    void settle();

    bool isLost() const { return lost_; }

private:
    using Loop = platform::Handle<pw_thread_loop, pw_thread_loop_destroy>;
    using Context = platform::Handle<pw_context, pw_context_destroy>;
    using Core = platform::Handle<pw_core, pw_core_disconnect>;

    PipeWireConnection() = default;

    bool connect(std::optional<int> descriptor);
    void end();

    static const pw_core_events& events();

    Loop loop_;
    Context context_;
    Core core_;
    spa_hook listener_{};
    int awaited_ = 0;  ///< under `Lock`

    std::mutex mutex_;
    std::condition_variable changed_;
    bool isDone_ = false;  ///< what was awaited has come
    std::atomic<bool> lost_ = false;
};

}  // namespace tarvex::camera
