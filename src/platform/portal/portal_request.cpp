#include "platform/portal/portal_request.h"

#include <gio/gio.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

namespace tarvex::platform {

namespace {

template <typename Object>
using GObjectPointer = std::unique_ptr<Object, decltype([](Object* object) { g_object_unref(object); })>;
using Context = std::unique_ptr<GMainContext, decltype([](GMainContext* context) { g_main_context_unref(context); })>;
using Variant = std::unique_ptr<GVariant, decltype([](GVariant* variant) { g_variant_unref(variant); })>;
using Text = std::unique_ptr<char, decltype([](char* text) { g_free(text); })>;

struct Error {
    GError* error = nullptr;

    Error() = default;
    ~Error() { g_clear_error(&error); }
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;

    bool is(GDBusError code) const { return g_error_matches(error, G_DBUS_ERROR, code) != 0; }
    bool saysThatTheMethodIsUnknown() const {
        return is(G_DBUS_ERROR_UNKNOWN_METHOD) || is(G_DBUS_ERROR_UNKNOWN_INTERFACE) || is(G_DBUS_ERROR_UNKNOWN_OBJECT);
    }
};

constexpr const char* portalName = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
constexpr std::chrono::milliseconds replyTimeLimit{60'000};

int inMilliseconds(std::chrono::milliseconds time) {
    return static_cast<int>(time.count());
}

// The main context of one conversation: its signals come to this thread, whatever the host's loops do.
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
    Context context_{g_main_context_new()};
};

// While it lives, cancels what has not ended in time; acts when the context's thread waits.
class TimeLimit {
public:
    TimeLimit(const ThreadContext& context, std::chrono::milliseconds limit, GCancellable* cancellable)
        : timer_(g_timeout_source_new(static_cast<guint>(limit.count()))) {
        const auto cancel = [](gpointer data) -> gboolean {
            g_cancellable_cancel(static_cast<GCancellable*>(data));
            return G_SOURCE_REMOVE;
        };
        g_source_set_callback(timer_.get(), cancel, cancellable, nullptr);
        g_source_attach(timer_.get(), context.get());
    }
    ~TimeLimit() { g_source_destroy(timer_.get()); }
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

private:
    std::unique_ptr<GSource, decltype([](GSource* source) { g_source_unref(source); })> timer_;
};

// A connection of the conversation's own: the process's shared one ends the process when the bus goes away.
class Conversation {
public:
    /// Waits for the bus, at most for its time limit: a socket may accept and never answer.
    Conversation(const ThreadContext& context, GCancellable* cancellable, std::chrono::milliseconds busTimeLimit)
        : cancellable_(cancellable), busTimeLimit_(busTimeLimit) {
        const Text address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, cancellable_, nullptr));
        if (!address || g_dbus_is_supported_address(address.get(), nullptr) == 0) return;
        // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): an enumeration of bits
        const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                             G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        g_dbus_connection_new_for_address(address.get(), flags, nullptr, cancellable_, &Conversation::connected, this);
        const TimeLimit limit(context, busTimeLimit_, cancellable_);
        while (!connectionEnded_)
            context.wait();
        if (bus_) closed_ = g_signal_connect(bus_.get(), "closed", G_CALLBACK(&Conversation::busClosed), this);
    }

    ~Conversation() {
        if (!bus_) return;
        g_signal_handler_disconnect(bus_.get(), closed_);
        for (const guint subscription : subscriptions_)
            g_dbus_connection_signal_unsubscribe(bus_.get(), subscription);
        g_dbus_connection_close_sync(bus_.get(), nullptr, nullptr);
    }

    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    /// Starts the portal where it can be started, and listens to it; false when there is none.
    bool reachPortal() {
        if (!bus_) return false;
        Error error;
        Variant owner = callBus("GetNameOwner", g_variant_new("(s)", portalName), busTimeLimit_, &error);
        if (!owner && error.is(G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
            callBus("StartServiceByName", g_variant_new("(su)", portalName, 0U), replyTimeLimit);
            owner = callBus("GetNameOwner", g_variant_new("(s)", portalName), busTimeLimit_);
        }
        if (!owner) return false;
        const char* name = nullptr;
        g_variant_get(owner.get(), "(&s)", &name);
        portal_ = name;
        subscriptions_ = {g_dbus_connection_signal_subscribe(
                              bus_.get(), portal_.c_str(), "org.freedesktop.portal.Request", "Response", nullptr,
                              nullptr, G_DBUS_SIGNAL_FLAGS_NONE, &Conversation::responded, this, nullptr),
                          g_dbus_connection_signal_subscribe(
                              bus_.get(), "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", nullptr,
                              portal_.c_str(), G_DBUS_SIGNAL_FLAGS_NONE, &Conversation::portalLeft, this, nullptr)};
        return true;
    }

    /// The object that stands for the request until its response.
    std::optional<std::string> begin(const PortalRequest& request, Error& error) const {
        GVariantBuilder arguments;
        g_variant_builder_init(&arguments, G_VARIANT_TYPE_TUPLE);
        for (const std::string& argument : request.arguments)
            g_variant_builder_add(&arguments, "s", argument.c_str());
        g_variant_builder_open(&arguments, G_VARIANT_TYPE_VARDICT);
        g_variant_builder_add(&arguments, "{sv}", "handle_token", g_variant_new_string("tarvex"));
        g_variant_builder_close(&arguments);
        const Variant reply(g_dbus_connection_call_sync(
            bus_.get(), portal_.c_str(), portalPath, request.interface.c_str(), request.method.c_str(),
            g_variant_builder_end(&arguments), G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE,
            inMilliseconds(replyTimeLimit), cancellable_, &error.error));
        if (!reply) return std::nullopt;
        const char* handle = nullptr;
        g_variant_get(reply.get(), "(&o)", &handle);
        return handle;
    }

    /// Whether nobody will answer any more.
    bool isLost() const { return lost_; }

    /// The response of the request: 0 for success. It may have come before the reply that names the request.
    std::optional<std::uint32_t> responseTo(const std::string& handle) const {
        const auto response = responses_.find(handle);
        return response == responses_.end() ? std::nullopt : std::optional(response->second);
    }

private:
    static void connected(GObject*, GAsyncResult* result, gpointer self) {
        auto* conversation = static_cast<Conversation*>(self);
        conversation->bus_.reset(g_dbus_connection_new_for_address_finish(result, nullptr));
        conversation->connectionEnded_ = true;
    }

    Variant callBus(const char* method, GVariant* arguments, std::chrono::milliseconds limit,
                    Error* error = nullptr) const {
        return Variant(g_dbus_connection_call_sync(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                                   "org.freedesktop.DBus", method, arguments, nullptr,
                                                   G_DBUS_CALL_FLAGS_NONE, inMilliseconds(limit), cancellable_,
                                                   error != nullptr ? &error->error : nullptr));
    }

    static void responded(GDBusConnection*, const char*, const char* path, const char*, const char*,
                          GVariant* parameters, gpointer self) {
        if (g_variant_is_of_type(parameters, G_VARIANT_TYPE("(ua{sv})")) == 0) return;
        std::uint32_t response = 0;
        g_variant_get_child(parameters, 0, "u", &response);
        static_cast<Conversation*>(self)->responses_.emplace(path, response);
    }

    static void portalLeft(GDBusConnection*, const char*, const char*, const char*, const char*, GVariant*,
                           gpointer self) {
        static_cast<Conversation*>(self)->lost_ = true;
    }

    static void busClosed(GDBusConnection*, gboolean, GError*, gpointer self) {
        static_cast<Conversation*>(self)->lost_ = true;
    }

    GCancellable* cancellable_;
    std::chrono::milliseconds busTimeLimit_;
    bool connectionEnded_ = false;
    GObjectPointer<GDBusConnection> bus_;
    gulong closed_ = 0;
    std::string portal_;
    std::vector<guint> subscriptions_;
    std::map<std::string, std::uint32_t> responses_;
    bool lost_ = false;
};

}  // namespace

PortalAnswer PortalRequest::ask(const std::stop_token& stop) const {
    const ThreadContext context;
    const GObjectPointer<GCancellable> cancellable(g_cancellable_new());
    const std::stop_callback cancel(stop, [&] {
        g_cancellable_cancel(cancellable.get());
        context.wakeUp();
    });

    Conversation conversation(context, cancellable.get(), busTimeLimit);
    if (!conversation.reachPortal()) return PortalAnswer::unavailable;
    Error error;
    const auto handle = conversation.begin(*this, error);
    if (!handle) return error.saysThatTheMethodIsUnknown() ? PortalAnswer::unavailable : PortalAnswer::failed;
    while (true) {
        if (const auto response = conversation.responseTo(*handle))
            return *response == 0 ? PortalAnswer::agreed : PortalAnswer::refused;
        if (conversation.isLost() || stop.stop_requested()) return PortalAnswer::refused;
        context.wait();
    }
}

}  // namespace tarvex::platform
