#pragma once

#include <gio/gio.h>

#include <mutex>

#include "prelude.h"
#include "session_bus.h"

namespace tarvex::test {

/// A desktop portal on the session bus of the test, which treats each request as its script says. Thread-safe.
class ScriptedPortal {
public:
    enum class Step : std::uint8_t {
        respondSuccess = 0,
        respondCancelled = 1,  ///< also the user's "no"
        respondOtherwise = 2,
        respondToElse,       ///< success of a request that nobody made
        reply,               ///< with the handle that the caller expects
        replyOtherHandle,    ///< as portals of old did
        replyError,          ///< the request is not allowed
        die,                 ///< leaves the bus without another word
        waitForNextRequest,  ///< goes on when another request has come: that one's steps come first
    };

    /// `knowsMethods`: a portal without them has the name on the bus, and no interface that a test asks for.
    explicit ScriptedPortal(std::vector<Step> script, bool knowsMethods = true) {
        state_->script = std::move(script);
        if (knowsMethods) {
            const auto forget = [](gpointer state) { delete static_cast<std::shared_ptr<State>*>(state); };
            g_dbus_connection_add_filter(bus_, receive, new std::shared_ptr<State>(state_), forget);
        }
        bus_.own("org.freedesktop.portal.Desktop");
    }

    int requestCount() const {
        const std::lock_guard lock(state_->mutex);
        return state_->requestCount;
    }
    /// The last URL that was to be opened.
    std::string openedUrl() const {
        const std::lock_guard lock(state_->mutex);
        return state_->openedUrl;
    }

private:
    struct Request {
        std::shared_ptr<GDBusMessage> call;
        std::string handle;
        std::size_t step = 0;
    };
    struct State {
        std::mutex mutex;
        std::vector<Step> script;
        std::vector<Request> waiting;
        int requestCount = 0;
        std::string openedUrl;
    };

    static std::string handleOf(const std::string& end) { return "/org/freedesktop/portal/desktop/request/" + end; }

    /// Called on the bus connection's own thread.
    static GDBusMessage* receive(GDBusConnection* bus, GDBusMessage* message, gboolean incoming, gpointer shared) {
        constexpr std::string_view prefix = "org.freedesktop.portal.";
        const char* interface = g_dbus_message_get_interface(message);
        if (incoming == FALSE || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL ||
            interface == nullptr || !std::string_view(interface).starts_with(prefix))
            return message;
        State& state = **static_cast<std::shared_ptr<State>*>(shared);
        const std::lock_guard lock(state.mutex);
        GVariant* arguments = g_dbus_message_get_body(message);
        GVariant* options = g_variant_get_child_value(arguments, g_variant_n_children(arguments) - 1);
        const char* token = "none";
        g_variant_lookup(options, "handle_token", "&s", &token);
        std::string caller = g_dbus_message_get_sender(message) + 1;
        std::ranges::replace(caller, '.', '_');
        Request request{.call = {message, g_object_unref}, .handle = handleOf(caller + "/" + token)};
        g_variant_unref(options);
        const char* url = nullptr;
        if (std::string_view(g_dbus_message_get_member(message)) == "OpenURI")
            g_variant_get_child(arguments, 1, "&s", &url);
        if (url != nullptr) state.openedUrl = url;
        ++state.requestCount;
        const auto earlier = std::exchange(state.waiting, {});
        play(bus, state, std::move(request));
        for (const Request& waited : earlier)
            play(bus, state, waited);
        return nullptr;
    }

    static void send(GDBusConnection* bus, GDBusMessage* message, GVariant* body) {
        if (body != nullptr) g_dbus_message_set_body(message, body);
        g_dbus_connection_send_message(bus, message, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr, nullptr);
        g_object_unref(message);
    }

    static void play(GDBusConnection* bus, State& state, Request request) {
        GDBusMessage* call = request.call.get();
        while (request.step < state.script.size()) {
            const Step step = state.script[request.step++];
            if (step == Step::die) return g_dbus_connection_close(bus, nullptr, nullptr, nullptr);
            if (step == Step::waitForNextRequest) {
                if (state.requestCount % 2 != 0) return state.waiting.push_back(std::move(request));
            } else if (step == Step::replyError) {
                send(bus,
                     g_dbus_message_new_method_error_literal(call, "org.freedesktop.portal.Error.NotAllowed", "no"),
                     nullptr);
            } else if (step == Step::reply || step == Step::replyOtherHandle) {
                if (step == Step::replyOtherHandle) request.handle = handleOf("of_old");
                send(bus, g_dbus_message_new_method_reply(call), g_variant_new("(o)", request.handle.c_str()));
            } else {
                const bool isElse = step == Step::respondToElse;
                GDBusMessage* response = g_dbus_message_new_signal((isElse ? handleOf("else") : request.handle).c_str(),
                                                                   "org.freedesktop.portal.Request", "Response");
                g_dbus_message_set_destination(response, g_dbus_message_get_sender(call));
                GVariantBuilder results;
                g_variant_builder_init(&results, G_VARIANT_TYPE_VARDICT);
                send(bus, response, g_variant_new("(ua{sv})", isElse ? 0U : static_cast<unsigned>(step), &results));
            }
        }
    }

    const std::shared_ptr<State> state_ = std::make_shared<State>();
    const BusConnection bus_;
};

}  // namespace tarvex::test
