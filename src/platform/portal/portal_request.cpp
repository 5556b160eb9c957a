#include "platform/portal/portal_request.h"

#include <gio/gio.h>

#include <algorithm>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/shared/handle.h"
#include "platform/shared/library_thread.h"

namespace tarvex::platform {

namespace {

template <typename Object>
using GObjectPointer = Handle<Object, g_object_unref>;
using Variant = Handle<GVariant, g_variant_unref>;
using Text = Handle<char, g_free>;

struct Error {
    GError* error = nullptr;

    Error() = default;
    ~Error() { g_clear_error(&error); }
    Error(const Error&) = delete;
    Error& operator=(const Error&) = delete;

    bool is(GDBusError code) const { return g_error_matches(error, G_DBUS_ERROR, code) != 0; }
    bool isUnknownMethod() const {
        return is(G_DBUS_ERROR_UNKNOWN_METHOD) || is(G_DBUS_ERROR_UNKNOWN_INTERFACE) || is(G_DBUS_ERROR_UNKNOWN_OBJECT);
    }
};

constexpr const char* portalName = "org.freedesktop.portal.Desktop";
constexpr const char* portalPath = "/org/freedesktop/portal/desktop";
constexpr std::chrono::milliseconds replyTimeLimit{60'000};

int inMilliseconds(std::chrono::milliseconds time) {
    return static_cast<int>(time.count());
}

// The main context of one conversation: delivers its signals on this thread, independent of the host's loops.
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

// Cancels an operation that has not ended in time, unless it is destroyed before; acts when the context's thread waits.
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
    Handle<GSource, g_source_unref> timer_;
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

    /// Starts the portal if necessary, and subscribes to its signals; false when there is none.
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

    /// Makes the request; returns the path of the object that represents it until its response.
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

    /// True when no answer will come any more.
    bool isLost() const { return lost_; }

    /// The response to the request: 0 for success. It may have come before the reply that names the request.
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
    if (!handle) return error.isUnknownMethod() ? PortalAnswer::unavailable : PortalAnswer::failed;
    while (true) {
        if (const auto response = conversation.responseTo(*handle))
            return *response == 0 ? PortalAnswer::agreed : PortalAnswer::refused;
        if (conversation.isLost() || stop.stop_requested()) return PortalAnswer::refused;
        context.wait();
    }
}

PortalConversations::~PortalConversations() {
    for (const auto& conversation : conversations_) {
        conversation->thread.request_stop();
        // A handler may destroy what it answers to.
        if (conversation->thread.get_id() == std::this_thread::get_id()) conversation->thread.detach();
    }
}

bool PortalConversations::begin(PortalRequest request, Handler handler) {
    const std::scoped_lock lock(mutex_);
    std::erase_if(conversations_, [](const auto& conversation) { return conversation->finished.load(); });
    auto begun = std::make_unique<Conversation>();
    try {
        begun->thread = std::jthread([this, &conversation = *begun, request = std::move(request),
                                      handler = std::move(handler)](const std::stop_token& stop) {
            beginLibraryThread("tarvex-portal");
            const PortalAnswer answer = request.ask(stop);
            {
                const std::scoped_lock returned(mutex_);  // the request has returned
            }
            if (stop.stop_requested()) return;
            conversation.answered = true;
            handler(answer);
            if (!stop.stop_requested()) conversation.finished = true;
        });
    } catch (const std::system_error&) {
        return false;
    }
    conversations_.push_back(std::move(begun));
    return true;
}

bool PortalConversations::areUnderWay() const {
    const std::scoped_lock lock(mutex_);
    return std::ranges::any_of(conversations_, [](const auto& conversation) { return !conversation->answered.load(); });
}

}  // namespace tarvex::platform
