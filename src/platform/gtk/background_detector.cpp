#include "platform/gtk/background_detector.h"

#include <gtk/gtk.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace tarvex::gtk {

namespace {

enum class Presence : std::uint8_t { hidden, visible, active };

constexpr guint graceInMilliseconds = 5000;

// A property since GTK 4.12: the compositor shows nothing of the window.
bool isSuspended(GtkWindow* window) {
    constexpr const char* property = "suspended";
    if (g_object_class_find_property(G_OBJECT_GET_CLASS(window), property) == nullptr) return false;
    gboolean suspended = FALSE;
    g_object_get(window, property, &suspended, nullptr);
    return suspended != 0;
}

bool isMinimised(GtkWindow* window) {
    GdkSurface* surface = gtk_native_get_surface(GTK_NATIVE(window));
    return GDK_IS_TOPLEVEL(surface) != 0 &&
           (gdk_toplevel_get_state(GDK_TOPLEVEL(surface)) & GDK_TOPLEVEL_STATE_MINIMIZED) != 0;
}

Presence presenceOf(GtkWindow* window) {
    if (gtk_widget_get_mapped(GTK_WIDGET(window)) == 0 || isMinimised(window) || isSuspended(window))
        return Presence::hidden;
    return gtk_window_is_active(window) != 0 ? Presence::active : Presence::visible;
}

}  // namespace

class BackgroundDetector::Watch : public std::enable_shared_from_this<Watch> {
public:
    explicit Watch(Callbacks callbacks) : callbacks_(std::move(callbacks)), windows_(gtk_window_get_toplevels()) {}

    ~Watch() { cancel(); }
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    void begin() {
        connect(windows_, "items-changed", [](Watch& watch, gpointer position, gpointer, gpointer added) {
            const guint first = GPOINTER_TO_UINT(position);
            for (guint i = first; i < first + GPOINTER_TO_UINT(added); ++i)
                watch.observeWindow(i);
        });
        for (guint i = 0; i < g_list_model_get_n_items(windows_); ++i)
            observeWindow(i);
        evaluate();
    }

private:
    using Observer = void (*)(Watch&, gpointer, gpointer, gpointer);
    struct Connection {
        std::weak_ptr<Watch> watch;
        Observer observer;
    };

    // Signals carry up to three arguments behind their data; those that they lack are never looked at.
    static void notified(Connection* connection, gpointer first, gpointer second, gpointer third) noexcept {
        const auto watch = connection->watch.lock();
        if (!watch) return;
        if (connection->observer != nullptr) connection->observer(*watch, first, second, third);
        watch->evaluate();
    }

    void connect(gpointer object, const char* signal, Observer observer = nullptr) {
        g_signal_connect_data(
            object, signal, G_CALLBACK(notified), new Connection{.watch = weak_from_this(), .observer = observer},
            [](gpointer data, GClosure*) { delete static_cast<Connection*>(data); }, G_CONNECT_SWAPPED);
    }

    void observeWindow(guint position) {
        auto* window = GTK_WINDOW(g_list_model_get_item(windows_, position));
        if (window == nullptr) return;
        for (const char* signal : {"map", "unmap", "notify::is-active"})
            connect(window, signal);
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(window), "suspended") != nullptr)
            connect(window, "notify::suspended");
        // Each realization makes a new surface.
        connect(window, "realize", [](Watch& watch, gpointer realized, gpointer, gpointer) {
            watch.observeSurface(GTK_NATIVE(realized));
        });
        if (gtk_widget_get_realized(GTK_WIDGET(window)) != 0) observeSurface(GTK_NATIVE(window));
        g_object_unref(window);
    }

    void observeSurface(GtkNative* window) {
        if (GdkSurface* surface = gtk_native_get_surface(window)) connect(surface, "notify::state");
    }

    Presence presence() const {
        Presence most = Presence::hidden;
        for (guint i = 0; i < g_list_model_get_n_items(windows_); ++i) {
            auto* window = GTK_WINDOW(g_list_model_get_item(windows_, i));
            most = std::max(most, presenceOf(window));
            g_object_unref(window);
        }
        return most;
    }

    void evaluate() {
        const Presence now = presence();
        // A window that was shown without ever being active has not left the foreground for that.
        if (now == Presence::active || (now == Presence::visible && last_ == Presence::hidden)) {
            foreground_ = true;
            cancel();
        } else if (foreground_ && now != last_) {
            schedule(now == Presence::hidden ? 0 : graceInMilliseconds);
        }
        last_ = now;
    }

    // Not at once, even when all windows are gone: a host that closes one to open another stays in the foreground.
    void schedule(guint delay) {
        cancel();
        coveredWhenScheduled_ = callbacks_.isCoveredBySystemDialog();
        check_ = g_timeout_add_full(
            G_PRIORITY_DEFAULT, delay,
            [](gpointer self) noexcept -> gboolean {
                auto* watch = static_cast<Watch*>(self);
                watch->check_ = 0;
                watch->shared_from_this()->check();
                return G_SOURCE_REMOVE;
            },
            this, nullptr);
    }

    void check() {
        // A dialog that has closed in between has still to give the focus back.
        if (coveredWhenScheduled_ || callbacks_.isCoveredBySystemDialog()) return schedule(graceInMilliseconds);
        foreground_ = false;
        callbacks_.didEnterBackground();
    }

    void cancel() {
        if (check_ != 0) g_source_remove(std::exchange(check_, 0));
    }

    Callbacks callbacks_;
    GListModel* windows_;
    Presence last_ = Presence::hidden;
    bool foreground_ = false;
    bool coveredWhenScheduled_ = false;
    guint check_ = 0;
};

BackgroundDetector::BackgroundDetector(Callbacks callbacks) : watch_(std::make_shared<Watch>(std::move(callbacks))) {
    watch_->begin();
}

BackgroundDetector::~BackgroundDetector() = default;

}  // namespace tarvex::gtk
