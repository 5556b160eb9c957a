#include "platform/glib/glib_timer_scheduler.h"

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/shared/deadline_grid.h"
#include "platform/shared/handle.h"

namespace tarvex::platform {

namespace {

using Source = Handle<GSource, g_source_unref>;

constexpr gint64 neverReady = -1;

std::chrono::microseconds tickInterval(double seconds) {
    using std::chrono::microseconds;
    if (!(seconds > 0)) return std::chrono::seconds(1);
    const double count = std::round(seconds * 1e6);
    if (count >= static_cast<double>(microseconds::max().count())) return microseconds::max();
    return std::max<microseconds>(std::chrono::milliseconds(1), microseconds(static_cast<std::int64_t>(count)));
}

/// The block of a timer and its deadlines, shared by the timer and its source. The source releases the block, never
/// while it runs.
///
/// The lock also hands the tick from the thread that makes the timer to the one that runs it: a thread sanitizer cannot
/// follow the locks inside GLib.
class Tick {
public:
    Tick(std::chrono::microseconds interval, std::function<void()> block)
        : interval_(interval), block_(std::move(block)) {}

    static void giveToSource(const std::shared_ptr<Tick>& tick, GSource* source) {
        tick->heldBySource_ = tick;
        g_source_set_callback(source, nullptr, tick.get(), [](gpointer data) {
            const auto released = std::move(static_cast<Tick*>(data)->heldBySource_);
            released->block_ = nullptr;
        });
        tick->schedule(source);
    }

    bool isValid() {
        const std::lock_guard lock(mutex_);
        return valid_;
    }

    void run() { block_(); }

    /// Readies the source for its next tick; false once the timer is invalid.
    bool schedule(GSource* source) {
        const std::lock_guard lock(mutex_);
        if (valid_) g_source_set_ready_time(source, advance());
        return valid_;
    }

    /// Readies the source to be removed by its loop.
    void invalidate(GSource* source) {
        const std::lock_guard lock(mutex_);
        valid_ = false;
        g_source_set_ready_time(source, 0);
    }

private:
    gint64 advance() {
        const auto next = nextDeadline(deadline_, interval_, monotonicNow());
        if (!next) return neverReady;
        deadline_ = *next;
        return deadline_.time_since_epoch().count();
    }

    std::chrono::microseconds interval_;
    Instant deadline_ = monotonicNow();
    std::function<void()> block_;
    std::shared_ptr<Tick> heldBySource_;
    std::mutex mutex_;
    bool valid_ = true;
};

// noexcept: an exception must not travel through GLib's frames.
gboolean dispatch(GSource* source, GSourceFunc, gpointer data) noexcept {
    auto& tick = *static_cast<Tick*>(data);
    if (!tick.isValid()) return G_SOURCE_REMOVE;
    tick.run();
    return tick.schedule(source) ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
}

GSourceFuncs functions = {nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};

class GLibTimer final : public Timer {
public:
    GLibTimer(std::chrono::microseconds interval, std::function<void()> block)
        : tick_(std::make_shared<Tick>(interval, std::move(block))),
          source_(g_source_new(&functions, sizeof(GSource))),
          hasContextOfItsThread_(g_main_context_get_thread_default() != nullptr) {
        g_source_set_static_name(source_.get(), "tarvex timer");
        Tick::giveToSource(tick_, source_.get());
        g_source_attach(source_.get(), g_main_context_get_thread_default());
    }

    void invalidate() override {
        tick_->invalidate(source_.get());
        if (isOnItsThread()) g_source_destroy(source_.get());
    }

private:
    /// True when the calling thread is the one that runs the loop, if any does.
    bool isOnItsThread() const {
        return hasContextOfItsThread_ ? thread_ == std::this_thread::get_id()
                                      : g_main_context_is_owner(g_main_context_default()) != FALSE;
    }

    std::shared_ptr<Tick> tick_;
    Source source_;
    bool hasContextOfItsThread_;
    std::thread::id thread_ = std::this_thread::get_id();
};

}  // namespace

std::shared_ptr<Timer> GLibTimerScheduler::scheduledTimer(double interval, std::function<void()> block) {
    if (onFirstMainTimer_ && g_main_context_get_thread_default() == nullptr) std::call_once(first_, onFirstMainTimer_);
    return std::make_shared<GLibTimer>(tickInterval(interval), std::move(block));
}

}  // namespace tarvex::platform
