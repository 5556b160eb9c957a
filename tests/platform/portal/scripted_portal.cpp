#include "scripted_portal.h"

#include <algorithm>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace tarvex::test {

namespace {

constexpr const char* interfaces = R"(<node>
  <interface name="org.freedesktop.portal.Camera">
    <method name="AccessCamera">
      <arg type="a{sv}" name="options" direction="in"/><arg type="o" name="handle" direction="out"/>
    </method>
  </interface>
  <interface name="org.freedesktop.portal.OpenURI">
    <method name="OpenURI">
      <arg type="s" name="parent_window" direction="in"/><arg type="s" name="uri" direction="in"/>
      <arg type="a{sv}" name="options" direction="in"/><arg type="o" name="handle" direction="out"/>
    </method>
  </interface>
</node>)";

constexpr const char* requestRoot = "/org/freedesktop/portal/desktop/request/";

}  // namespace

ScriptedPortal::ScriptedPortal(std::vector<Step> script, bool knowsMethods)
    : script_(std::move(script)), context_(g_main_context_new()), thread_([this, knowsMethods] { run(knowsMethods); }) {
    while (!ready_)
        std::this_thread::yield();
}

ScriptedPortal::~ScriptedPortal() {
    ended_ = true;
    g_main_context_wakeup(context_);
    thread_.join();
    g_main_context_unref(context_);
}

void ScriptedPortal::run(bool knowsMethods) {
    g_main_context_push_thread_default(context_);
    const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                         G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    bus_ = g_dbus_connection_new_for_address_sync(std::getenv("DBUS_SESSION_BUS_ADDRESS"), flags, nullptr, nullptr,
                                                  nullptr);
    if (bus_ == nullptr) throw std::runtime_error("the portal has no bus");
    if (knowsMethods) registerObject();
    GVariant* owned =
        g_dbus_connection_call_sync(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                                    "RequestName", g_variant_new("(su)", "org.freedesktop.portal.Desktop", 0U), nullptr,
                                    G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
    if (owned == nullptr) throw std::runtime_error("the portal cannot have its name");
    g_variant_unref(owned);
    ready_ = true;
    while (!ended_)
        g_main_context_iteration(context_, TRUE);
    g_dbus_connection_close_sync(bus_, nullptr, nullptr);
    g_object_unref(bus_);
    g_main_context_pop_thread_default(context_);
}

void ScriptedPortal::registerObject() {
    static const GDBusInterfaceVTable vtable{
        .method_call =
            [](GDBusConnection*, const char*, const char*, const char*, const char* method, GVariant* parameters,
               GDBusMethodInvocation* invocation,
               gpointer self) { static_cast<ScriptedPortal*>(self)->receive(method, parameters, invocation); },
        .get_property = nullptr,
        .set_property = nullptr,
        .padding = {}};
    GDBusNodeInfo* node = g_dbus_node_info_new_for_xml(interfaces, nullptr);
    for (GDBusInterfaceInfo** interface = node->interfaces; *interface != nullptr; ++interface)
        g_dbus_connection_register_object(bus_, "/org/freedesktop/portal/desktop", *interface, &vtable, this, nullptr,
                                          nullptr);
    g_dbus_node_info_unref(node);
}

void ScriptedPortal::receive(const char* method, GVariant* parameters, GDBusMethodInvocation* invocation) {
    Request request{.invocation = invocation, .caller = g_dbus_method_invocation_get_sender(invocation), .handle = {}};
    GVariant* options = g_variant_get_child_value(parameters, g_variant_n_children(parameters) - 1);
    const char* token = "none";
    g_variant_lookup(options, "handle_token", "&s", &token);
    std::string caller = request.caller.substr(1);
    std::ranges::replace(caller, '.', '_');
    request.handle = requestRoot + caller + "/" + token;
    g_variant_unref(options);
    if (std::string(method) == "OpenURI") {
        const char* url = nullptr;
        g_variant_get_child(parameters, 1, "&s", &url);
        openedUrl_ = url;
    }
    ++requestCount_;
    const auto earlier = std::exchange(waiting_, {});
    play(std::move(request));
    for (const Request& waited : earlier)
        play(waited);
}

void ScriptedPortal::respond(const Request& request, const std::string& handle, std::uint32_t response) {
    GVariantBuilder results;
    g_variant_builder_init(&results, G_VARIANT_TYPE_VARDICT);
    g_dbus_connection_emit_signal(bus_, request.caller.c_str(), handle.c_str(), "org.freedesktop.portal.Request",
                                  "Response", g_variant_new("(ua{sv})", response, &results), nullptr);
}

void ScriptedPortal::play(Request request) {
    while (request.step < script_.size()) {
        switch (script_[request.step++]) {
            case Step::reply:
                g_dbus_method_invocation_return_value(request.invocation, g_variant_new("(o)", request.handle.c_str()));
                break;
            case Step::replyOtherHandle:
                request.handle = std::string(requestRoot).append("of_old");
                g_dbus_method_invocation_return_value(request.invocation, g_variant_new("(o)", request.handle.c_str()));
                break;
            case Step::replyError:
                g_dbus_method_invocation_return_dbus_error(request.invocation,
                                                           "org.freedesktop.portal.Error.NotAllowed", "switched off");
                break;
            case Step::respondSuccess:
                respond(request, request.handle, 0);
                break;
            case Step::respondCancelled:
                respond(request, request.handle, 1);
                break;
            case Step::respondOtherwise:
                respond(request, request.handle, 2);
                break;
            case Step::respondToElse:
                respond(request, std::string(requestRoot).append("else"), 0);
                break;
            case Step::die:
                g_dbus_connection_close_sync(bus_, nullptr, nullptr);
                return;
            case Step::waitForNextRequest:
                if (requestCount_ % 2 != 0) {
                    waiting_.push_back(std::move(request));
                    return;
                }
                break;
        }
    }
}

}  // namespace tarvex::test
