#pragma once

#include <gio/gio.h>

#include <chrono>
#include <optional>
#include <string>

#include "platform/shared/handle.h"

namespace tarvex::platform {

template <typename Object>
using GObjectPointer = Handle<Object, g_object_unref>;
using Variant = Handle<GVariant, g_variant_unref>;

/// An error of D-Bus, or none.
struct BusError {
    GError* error = nullptr;

    BusError() = default;
    ~BusError() { g_clear_error(&error); }
    BusError(const BusError&) = delete;
    BusError& operator=(const BusError&) = delete;

    bool is(GDBusError code) const { return g_error_matches(error, G_DBUS_ERROR, code) != 0; }
    bool isUnknownMethod() const {
        return is(G_DBUS_ERROR_UNKNOWN_METHOD) || is(G_DBUS_ERROR_UNKNOWN_INTERFACE) || is(G_DBUS_ERROR_UNKNOWN_OBJECT);
    }
};

/// The main context of one conversation: delivers its signals on this thread, independent of the host's loops.
class ThreadContext {
public:
    ThreadContext() { g_main_context_push_thread_default(context_.get()); }
    ~ThreadContext() { g_main_context_pop_thread_default(context_.get()); }
    ThreadContext(const ThreadContext&) = delete;
    ThreadContext& operator=(const ThreadContext&) = delete;

    void wait() const { g_main_context_iteration(context_.get(), TRUE); }
    void wakeUp() const { g_main_context_wakeup(context_.get()); }
    GMainContext* get() const { return context_.get(); }

private:
    Handle<GMainContext, g_main_context_unref> context_{g_main_context_new()};
};

/// A connection of the conversation's own to the session bus: the process's shared one ends the process when the bus
/// goes away.
class PortalConnection {
public:
    static constexpr const char* path = "/org/freedesktop/portal/desktop";
    /// Longest wait for an answer of the portal that needs no person.
    static constexpr std::chrono::milliseconds replyTimeLimit{60'000};

    /// Waits for the bus, at most for its time limit: a socket may accept and never answer.
    PortalConnection(const ThreadContext& context, GCancellable* cancellable, std::chrono::milliseconds busTimeLimit);
    ~PortalConnection();
    PortalConnection(const PortalConnection&) = delete;
    PortalConnection& operator=(const PortalConnection&) = delete;

    /// Looks for the portal on the bus; where it does not run, waits for its start at most for `startTimeLimit`, and
    /// does not start it without one. False when there is none.
    bool reachPortal(std::optional<std::chrono::milliseconds> startTimeLimit = replyTimeLimit);

    /// The connection; null where no bus answers.
    GDBusConnection* bus() const { return bus_.get(); }
    /// The portal's unique name.
    const std::string& portal() const { return portal_; }

private:
    static void connected(GObject*, GAsyncResult* result, gpointer self);
    Variant callBus(const char* method, GVariant* arguments, std::chrono::milliseconds limit,
                    BusError* error = nullptr) const;

    GCancellable* cancellable_;
    std::chrono::milliseconds busTimeLimit_;
    bool connectionEnded_ = false;
    GObjectPointer<GDBusConnection> bus_;
    std::string portal_;
};

}  // namespace tarvex::platform
