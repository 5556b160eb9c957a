#include "platform/camera/pipewire/pipewire_connection.h"

#include <fcntl.h>

#include <cerrno>
#include <future>

#include "platform/shared/library_thread.h"

namespace tarvex::camera {

std::shared_ptr<PipeWireConnection> PipeWireConnection::open(std::optional<int> descriptor) {
    static const bool initialised = (pw_init(nullptr, nullptr), true);
    std::shared_ptr<PipeWireConnection> connection(initialised ? new PipeWireConnection() : nullptr);
    // The threads that libpipewire starts inherit it.
    const platform::SignalsBlocked signalsBlocked;
    return connection->connect(descriptor) ? connection : nullptr;
}

bool PipeWireConnection::connect(std::optional<int> descriptor) {
    loop_.reset(pw_thread_loop_new("tarvex-pipewire", nullptr));
    if (loop_) context_.reset(pw_context_new(pw_thread_loop_get_loop(loop_.get()), nullptr, 0));
    if (!context_ || pw_thread_loop_start(loop_.get()) != 0) return false;
    const Lock lock(*this);
    if (descriptor) {
        const int own = ::fcntl(*descriptor, F_DUPFD_CLOEXEC, 0);
        if (own >= 0) core_.reset(pw_context_connect_fd(context_.get(), own, nullptr, 0));
    } else {
        core_.reset(pw_context_connect(context_.get(), nullptr, 0));
    }
    if (core_) pw_core_add_listener(core_.get(), &listener_, &events(), this);
    return core_ != nullptr;
}

PipeWireConnection::~PipeWireConnection() {
    if (loop_) pw_thread_loop_stop(loop_.get());
    if (core_) spa_hook_remove(&listener_);
}

bool PipeWireConnection::catchUp(Clock::time_point deadline) {
    {
        const Lock lock(*this);
        const std::lock_guard guard(mutex_);
        isDone_ = false;
        awaited_ = pw_core_sync(core_.get(), PW_ID_CORE, 0);
    }
    std::unique_lock guard(mutex_);
    changed_.wait_until(guard, deadline, [this] { return isDone_ || lost_; });
    return isDone_;
}

void PipeWireConnection::settle() {
    std::promise<void> reached;
    pw_loop* loop = pw_thread_loop_get_loop(loop_.get());
    spa_source* event = nullptr;
    {
        const Lock lock(*this);
        const auto reach = [](void* promise, std::uint64_t) { static_cast<std::promise<void>*>(promise)->set_value(); };
        event = pw_loop_add_event(loop, reach, &reached);
        if (event == nullptr) return;  // no descriptor is left
        pw_loop_signal_event(loop, event);
    }
    reached.get_future().wait();
    // The thread lets the lock go only when it is through with everything that it woke up for.
    const Lock lock(*this);
    pw_loop_destroy_source(loop, event);
}

const pw_core_events& PipeWireConnection::events() {
    static const pw_core_events events = [] {
        pw_core_events filled{};
        filled.version = PW_VERSION_CORE_EVENTS;
        filled.done = [](void* self, std::uint32_t id, int sequence) {
            auto& connection = *static_cast<PipeWireConnection*>(self);
            if (id != PW_ID_CORE || sequence != connection.awaited_) return;
            const std::lock_guard guard(connection.mutex_);
            connection.isDone_ = true;
            connection.changed_.notify_all();
        };
        filled.error = [](void* self, std::uint32_t id, int, int result, const char*) {
            if (id != PW_ID_CORE || result != -EPIPE) return;
            auto& connection = *static_cast<PipeWireConnection*>(self);
            const std::lock_guard guard(connection.mutex_);
            connection.lost_ = true;
            connection.changed_.notify_all();
        };
        return filled;
    }();
    return events;
}

}  // namespace tarvex::camera
