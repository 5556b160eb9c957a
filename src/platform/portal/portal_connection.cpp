#include "platform/portal/portal_connection.h"

namespace tarvex::platform {
namespace {

constexpr const char* portalName = "org.freedesktop.portal.Desktop";

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

}  // namespace

PortalConnection::PortalConnection(const ThreadContext& context, GCancellable* cancellable,
                                   std::chrono::milliseconds busTimeLimit)
    : cancellable_(cancellable), busTimeLimit_(busTimeLimit) {
    const Handle<char, g_free> address(g_dbus_address_get_for_bus_sync(G_BUS_TYPE_SESSION, cancellable_, nullptr));
    if (!address || g_dbus_is_supported_address(address.get(), nullptr) == 0) return;
    // NOLINTNEXTLINE(clang-analyzer-optin.core.EnumCastOutOfRange): an enumeration of bits
    const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                         G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_dbus_connection_new_for_address(address.get(), flags, nullptr, cancellable_, &PortalConnection::connected, this);
    const TimeLimit limit(context, busTimeLimit_, cancellable_);
    while (!connectionEnded_)
        context.wait();
}

PortalConnection::~PortalConnection() {
    if (bus_) g_dbus_connection_close_sync(bus_.get(), nullptr, nullptr);
}

bool PortalConnection::reachPortal(std::optional<std::chrono::milliseconds> startTimeLimit) {
    if (!bus_) return false;
    BusError error;
    Variant owner = callBus("GetNameOwner", g_variant_new("(s)", portalName), busTimeLimit_, &error);
    if (!owner && startTimeLimit && error.is(G_DBUS_ERROR_NAME_HAS_NO_OWNER)) {
        callBus("StartServiceByName", g_variant_new("(su)", portalName, 0U), *startTimeLimit);
        owner = callBus("GetNameOwner", g_variant_new("(s)", portalName), busTimeLimit_);
    }
    if (!owner) return false;
    const char* name = nullptr;
    g_variant_get(owner.get(), "(&s)", &name);
    portal_ = name;
    return true;
}

void PortalConnection::connected(GObject*, GAsyncResult* result, gpointer self) {
    auto* connection = static_cast<PortalConnection*>(self);
    connection->bus_.reset(g_dbus_connection_new_for_address_finish(result, nullptr));
    connection->connectionEnded_ = true;
}

Variant PortalConnection::callBus(const char* method, GVariant* arguments, std::chrono::milliseconds limit,
                                  BusError* error) const {
    return Variant(g_dbus_connection_call_sync(bus_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                               "org.freedesktop.DBus", method, arguments, nullptr,
                                               G_DBUS_CALL_FLAGS_NONE, static_cast<int>(limit.count()), cancellable_,
                                               error != nullptr ? &error->error : nullptr));
}

}  // namespace tarvex::platform
