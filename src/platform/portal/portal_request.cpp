#include "platform/portal/portal_request.h"

#include <algorithm>
#include <map>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/portal/portal_connection.h"
#include "platform/shared/library_thread.h"

namespace tarvex::platform {

namespace {

/// Requests to the portal, and its responses.
class Conversation {
public:
    Conversation(const ThreadContext& context, GCancellable* cancellable, std::chrono::milliseconds busTimeLimit)
        : cancellable_(cancellable), connection_(context, cancellable, busTimeLimit) {
        if (bus()) closed_ = g_signal_connect(bus(), "closed", G_CALLBACK(&Conversation::busClosed), this);
    }

    ~Conversation() {
        if (!bus()) return;
        g_signal_handler_disconnect(bus(), closed_);
        for (const guint subscription : subscriptions_)
            g_dbus_connection_signal_unsubscribe(bus(), subscription);
    }

    Conversation(const Conversation&) = delete;
    Conversation& operator=(const Conversation&) = delete;

    /// Starts the portal if necessary, and subscribes to its signals; false when there is none.
    bool reachPortal() {
        if (!connection_.reachPortal()) return false;
        const char* portal = connection_.portal().c_str();
        subscriptions_ = {g_dbus_connection_signal_subscribe(bus(), portal, "org.freedesktop.portal.Request",
                                                             "Response", nullptr, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
                                                             &Conversation::responded, this, nullptr),
                          g_dbus_connection_signal_subscribe(
                              bus(), "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", nullptr,
                              portal, G_DBUS_SIGNAL_FLAGS_NONE, &Conversation::portalLeft, this, nullptr)};
        return true;
    }

    /// Makes the request; returns the path of the object that represents it until its response.
    std::optional<std::string> begin(const PortalRequest& request, BusError& error) const {
        GVariantBuilder arguments;
        g_variant_builder_init(&arguments, G_VARIANT_TYPE_TUPLE);
        for (const std::string& argument : request.arguments)
            g_variant_builder_add(&arguments, "s", argument.c_str());
        g_variant_builder_open(&arguments, G_VARIANT_TYPE_VARDICT);
        g_variant_builder_add(&arguments, "{sv}", "handle_token", g_variant_new_string("tarvex"));
        g_variant_builder_close(&arguments);
        const Variant reply(g_dbus_connection_call_sync(
            bus(), connection_.portal().c_str(), PortalConnection::path, request.interface.c_str(),
            request.method.c_str(), g_variant_builder_end(&arguments), G_VARIANT_TYPE("(o)"), G_DBUS_CALL_FLAGS_NONE,
            static_cast<int>(PortalConnection::replyTimeLimit.count()), cancellable_, &error.error));
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
    GDBusConnection* bus() const { return connection_.bus(); }

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
    PortalConnection connection_;
    gulong closed_ = 0;
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
    BusError error;
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
