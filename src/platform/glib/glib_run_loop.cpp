#include "platform/glib/glib_run_loop.h"

#include <glib-unix.h>
#include <glib.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <deque>
#include <utility>

#include "platform/shared/handle.h"

namespace tarvex::platform {

namespace {

using Source = Handle<GSource, g_source_unref>;

}  // namespace

/// The blocks that wait for the main thread, and the source that runs them there.
///
/// Other threads only append and write the eventfd: they attach no source of their own, whose locking inside GLib a
/// thread sanitizer cannot follow. The eventfd counts the blocks, so that each one is an event of its own and an empty
/// queue causes no wake-up.
class GLibRunLoop::BlockQueue {
public:
    BlockQueue() : eventFd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE)) {
        if (eventFd_ < 0)
            g_log("Tarvex", G_LOG_LEVEL_ERROR,
                  "the main run loop cannot make its event descriptor: %s; raise the limit of open files",
                  g_strerror(errno));
    }

    ~BlockQueue() { close(eventFd_); }

    BlockQueue(const BlockQueue&) = delete;
    BlockQueue& operator=(const BlockQueue&) = delete;

    static void attach(const std::shared_ptr<BlockQueue>& queue) {
        static GSourceFuncs functions = {nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};
        queue->source_.reset(g_source_new(&functions, sizeof(GSource)));
        GSource* source = queue->source_.get();
        g_source_set_static_name(source, "tarvex main queue");
        g_source_set_callback(source, nullptr, new std::shared_ptr<BlockQueue>(queue),
                              [](gpointer data) { delete static_cast<std::shared_ptr<BlockQueue>*>(data); });
        // A block may run the loop: the blocks behind it then run in the nested run.
        g_source_set_can_recurse(source, TRUE);
        g_source_add_unix_fd(source, queue->eventFd_, G_IO_IN);
        g_source_attach(source, nullptr);
    }

    /// Runs no further block. The source releases the queue.
    void detach() {
        g_source_destroy(source_.get());
        std::deque<std::function<void()>> dropped;
        const std::lock_guard lock(mutex_);
        std::swap(dropped, blocks_);
    }

    void append(std::function<void()> block) {
        const std::lock_guard lock(mutex_);
        blocks_.push_back(std::move(block));
        const std::uint64_t one = 1;
        [[maybe_unused]] const auto written = write(eventFd_, &one, sizeof one);
    }

private:
    // noexcept: an exception must not travel through GLib's frames.
    static gboolean dispatch(GSource*, GSourceFunc, gpointer data) noexcept {
        const std::shared_ptr<BlockQueue> queue = *static_cast<std::shared_ptr<BlockQueue>*>(data);
        if (const std::function<void()> block = queue->takeFirst()) block();
        return G_SOURCE_CONTINUE;
    }

    std::function<void()> takeFirst() {
        std::uint64_t one = 0;
        if (read(eventFd_, &one, sizeof one) != sizeof one) return nullptr;
        const std::lock_guard lock(mutex_);
        if (blocks_.empty()) return nullptr;
        std::function<void()> block = std::move(blocks_.front());
        blocks_.pop_front();
        return block;
    }

    int eventFd_;
    Source source_;
    std::mutex mutex_;
    std::deque<std::function<void()>> blocks_;
};

GLibRunLoop::GLibRunLoop() : queue_(std::make_shared<BlockQueue>()) {
    BlockQueue::attach(queue_);
}

GLibRunLoop::~GLibRunLoop() {
    queue_->detach();
}

void GLibRunLoop::run() {
    // Held throughout, as by any main loop: while nobody owns the context, other threads may run its sources.
    GMainContext* context = g_main_context_default();
    const bool owned = g_main_context_acquire(context) != FALSE;
    std::atomic<bool> stopped = false;
    {
        const std::lock_guard lock(mutex_);
        stopped = std::exchange(stoppedBefore_, false);
        stopped_.push_back(&stopped);
    }
    while (!stopped.load())
        g_main_context_iteration(context, TRUE);
    {
        const std::lock_guard lock(mutex_);
        std::erase(stopped_, &stopped);
    }
    if (owned) g_main_context_release(context);
}

void GLibRunLoop::stop() {
    const std::lock_guard lock(mutex_);
    if (stopped_.empty()) {
        stoppedBefore_ = true;
        return;
    }
    stopped_.back()->store(true);
    g_main_context_wakeup(g_main_context_default());
}

void GLibRunLoop::perform(std::function<void()> block) {
    queue_->append(std::move(block));
}

}  // namespace tarvex::platform
