#include "platform/gtk/background_detector.h"

#include <gtk/gtk.h>

#include <algorithm>
#include <utility>

#include "platform/gtk/foreground_rule.h"

namespace tarvex::gtk {

namespace {

using Presence = ForegroundRule::Presence;
using Evidence = ForegroundRule::Evidence;
using Objects = std::unique_ptr<GList, decltype([](GList* objects) { g_list_free(objects); })>;

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

// Not by the seats' capabilities: on Wayland they have a keyboard's also when the last one was taken off.
bool hasKeyboard() {
    GdkDisplay* display = gdk_display_get_default();
    const Objects seats(display != nullptr ? gdk_display_list_seats(display) : nullptr);
    for (const GList* seat = seats.get(); seat != nullptr; seat = seat->next) {
        if (Objects(gdk_seat_get_devices(GDK_SEAT(seat->data), GDK_SEAT_CAPABILITY_KEYBOARD))) return true;
    }
    return false;
}

}  // namespace

class BackgroundDetector::Watch : public std::enable_shared_from_this<Watch> {
public:
    Watch(Callbacks callbacks, std::chrono::milliseconds timeWithoutFocus)
        : callbacks_(std::move(callbacks)),
          timeWithoutFocus_(static_cast<guint>(timeWithoutFocus.count())),
          windows_(gtk_window_get_toplevels()) {}

    ~Watch() {
        cancel();
        g_clear_weak_pointer(&application_);
    }
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

    // Signals carry up to three arguments behind their data; those that they lack are never looked at. FALSE lets a
    // signal that has a result go on; the others take none.
    static gboolean notified(Connection* connection, gpointer first, gpointer second, gpointer third) noexcept {
        if (const auto watch = connection->watch.lock()) {
            if (connection->observer != nullptr) connection->observer(*watch, first, second, third);
            watch->evaluate();
        }
        return FALSE;
    }

    void connect(gpointer object, const char* signal, Observer observer = nullptr, guint more = 0) {
        // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): an enumeration of bits
        const auto flags = static_cast<GConnectFlags>(more | G_CONNECT_SWAPPED);
        g_signal_connect_data(
            object, signal, G_CALLBACK(notified), new Connection{.watch = weak_from_this(), .observer = observer},
            [](gpointer data, GClosure*) { delete static_cast<Connection*>(data); }, flags);
    }

    void observeWindow(guint position) {
        auto* window = GTK_WINDOW(g_list_model_get_item(windows_, position));
        if (window == nullptr) return;
        if (!std::exchange(observesSeats_, true)) observeSeats(gtk_widget_get_display(GTK_WIDGET(window)));
        for (const char* signal : {"map", "unmap", "notify::is-active"})
            connect(window, signal);
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(window), "suspended") != nullptr)
            connect(window, "notify::suspended");
        // Each realization makes a new surface.
        connect(window, "realize", [](Watch& watch, gpointer realized, gpointer, gpointer) {
            watch.observeSurface(GTK_NATIVE(realized));
        });
        if (gtk_widget_get_realized(GTK_WIDGET(window)) != 0) observeSurface(GTK_NATIVE(window));
        observeClosing(window);
        g_object_unref(window);
    }

    void observeSurface(GtkNative* window) {
        if (GdkSurface* surface = gtk_native_get_surface(window)) connect(surface, "notify::state");
    }

    // A close request that no handler has stopped: GTK destroys the window next. Nothing of the host's follows but its
    // handlers of that, which may open another window or leave the loop; no timer of this would come in time.
    void observeClosing(GtkWindow* window) {
        const auto closes = [](Watch& watch, gpointer closing, gpointer, gpointer) {
            const auto closed = [](Watch& w, gpointer, gpointer, gpointer) {
                if (w.look() == Evidence::hidden) w.leave();
            };
            watch.connect(closing, "destroy", closed, G_CONNECT_AFTER);
        };
        connect(window, "close-request", closes, G_CONNECT_AFTER);
    }

    void observeSeats(GdkDisplay* display) {
        const auto added = [](Watch& watch, gpointer seat, gpointer, gpointer) { watch.observeSeat(seat); };
        connect(display, "seat-added", added);
        connect(display, "seat-removed");
        const Objects seats(gdk_display_list_seats(display));
        for (const GList* seat = seats.get(); seat != nullptr; seat = seat->next)
            observeSeat(seat->data);
    }

    void observeSeat(gpointer seat) {
        connect(seat, "device-added");
        connect(seat, "device-removed");
    }

    // Looked for again and again: hosts make their application at any time. It takes all windows away when it ends.
    void observeApplication() {
        GApplication* application = g_application_get_default();
        if (application == application_) return;
        g_set_weak_pointer(&application_, application);
        if (application == nullptr) return;
        connect(application, "shutdown", [](Watch& watch, gpointer, gpointer, gpointer) {
            watch.ending_ = true;
            if (watch.rule_.isForeground()) watch.leave();
        });
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

    Evidence look() {
        const Presence now = presence();
        if (ending_ && now != Presence::hidden) return Evidence::none;
        ending_ = false;
        return rule_.see(now, hasKeyboard());
    }

    void evaluate() {
        observeApplication();
        const Evidence evidence = look();
        if (evidence == std::exchange(evidence_, evidence)) return;
        cancel();
        // Not at once, even when all windows are gone: a host that closes one to open another stays in the foreground.
        if (evidence != Evidence::none) schedule(evidence == Evidence::hidden ? 0 : timeWithoutFocus_);
    }

    void schedule(guint delay) {
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
        if (look() != evidence_) return evaluate();
        // A dialog that has closed in between has still to give the focus back. No dialog minimises a window.
        const bool isCovered = coveredWhenScheduled_ || callbacks_.isCoveredBySystemDialog();
        if (evidence_ == Evidence::unfocused && isCovered) return schedule(timeWithoutFocus_);
        leave();
    }

    void leave() {
        cancel();
        rule_.leave();
        evidence_ = Evidence::none;
        callbacks_.didEnterBackground();
    }

    void cancel() {
        if (check_ != 0) g_source_remove(std::exchange(check_, 0));
    }

    Callbacks callbacks_;
    guint timeWithoutFocus_;
    GListModel* windows_;
    GApplication* application_ = nullptr;  // null once it is gone
    bool observesSeats_ = false;
    bool ending_ = false;  // the application, whose windows have still to go
    ForegroundRule rule_;
    Evidence evidence_ = Evidence::none;
    bool coveredWhenScheduled_ = false;
    guint check_ = 0;
};

BackgroundDetector::BackgroundDetector(Callbacks callbacks, std::chrono::milliseconds timeWithoutFocus)
    : watch_(std::make_shared<Watch>(std::move(callbacks), timeWithoutFocus)) {
    watch_->begin();
}

BackgroundDetector::~BackgroundDetector() = default;

void postBackground(platform::Platform& platform, std::chrono::milliseconds timeWithoutFocus) {
    platform.keep("tarvex::gtk::BackgroundDetector", [&platform, timeWithoutFocus] {
        BackgroundDetector::Callbacks callbacks{
            .didEnterBackground =
                [&platform] { platform.notificationCenter().post(platform::applicationDidEnterBackground); },
            .isCoveredBySystemDialog =
                [&platform] {
                    return platform.captureDevice().isRequestInProgress() || platform.application().isOpeningUrl();
                }};
        return std::make_shared<BackgroundDetector>(std::move(callbacks), timeWithoutFocus);
    });
}

}  // namespace tarvex::gtk
