#include "platform/linux/loop/glib_timer_scheduler.h"

#include <glib.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <utility>

#include "platform/linux/deadline_grid.h"

namespace tarvex::platform {

namespace {

using Source = std::unique_ptr<GSource, decltype([](GSource* source) { g_source_unref(source); })>;

constexpr gint64 neverReady = -1;

std::chrono::microseconds tickInterval(double seconds) {
    using std::chrono::microseconds;
    if (!(seconds > 0)) return std::chrono::seconds(1);
    const double count = std::round(seconds * 1e6);
    if (count >= static_cast<double>(microseconds::max().count())) return microseconds::max();
    return std::max<microseconds>(std::chrono::milliseconds(1), microseconds(static_cast<std::int64_t>(count)));
}

/// What a timer's source calls; released by the source, and never while the block runs.
class Tick {
public:
    Tick(std::chrono::microseconds interval, std::function<void()> block)
        : interval_(interval), block_(std::move(block)) {}

    void run() { block_(); }

    /// When the source is ready for the next tick.
    gint64 advance() {
        const auto next = nextDeadline(deadline_, interval_, monotonicNow());
        if (!next) return neverReady;
        deadline_ = *next;
        return deadline_.time_since_epoch().count();
    }

private:
    std::chrono::microseconds interval_;
    Instant deadline_ = monotonicNow();
    std::function<void()> block_;
};

// noexcept: an exception must not travel through GLib's frames.
gboolean dispatch(GSource* source, GSourceFunc, gpointer data) noexcept {
    auto& tick = *static_cast<Tick*>(data);
    tick.run();
    if (!g_source_is_destroyed(source)) g_source_set_ready_time(source, tick.advance());
    return G_SOURCE_CONTINUE;
}

GSourceFuncs functions = {nullptr, nullptr, dispatch, nullptr, nullptr, nullptr};

class GLibTimer final : public Timer {
public:
    GLibTimer(std::chrono::microseconds interval, std::function<void()> block)
        : source_(g_source_new(&functions, sizeof(GSource))) {
        auto tick = std::make_unique<Tick>(interval, std::move(block));
        g_source_set_static_name(source_.get(), "tarvex timer");
        g_source_set_ready_time(source_.get(), tick->advance());
        g_source_set_callback(source_.get(), nullptr, tick.release(),
                              [](gpointer data) { delete static_cast<Tick*>(data); });
        g_source_attach(source_.get(), g_main_context_get_thread_default());
    }

    void invalidate() override { g_source_destroy(source_.get()); }

private:
    Source source_;
};

}  // namespace

std::shared_ptr<Timer> GLibTimerScheduler::scheduledTimer(double interval, std::function<void()> block) {
    return std::make_shared<GLibTimer>(tickInterval(interval), std::move(block));
}

}  // namespace tarvex::platform
