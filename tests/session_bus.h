#pragma once

#include <gio/gio.h>

#include "prelude.h"
#include "running_program.h"

namespace tarvex::test {

/// Skips the test that runs, by an exception, unless all these programs are installed.
inline void requirePrograms(std::initializer_list<const char*> programs) {
    for (const char* program : programs) {
        char* path = g_find_program_in_path(program);
        g_free(path);
        if (path != nullptr) continue;
        const std::string reason = std::string(program) + " is not installed, and this test runs it.";
        [&reason] { GTEST_SKIP() << reason; }();
        using Result = ::testing::TestPartResult;
        throw ::testing::AssertionException(Result(Result::kSkip, __FILE__, __LINE__, reason.c_str()));
    }
}

/// A session bus of the test's own, which its process and the programs that it starts take for theirs. Not GLib's
/// GTestDBus: that forks, whatever threads there are, a watcher that may never end.
class SessionBus {
public:
    /// `services`: a directory of files that name what the bus starts on demand.
    explicit SessionBus(const std::string& services = "") {
        requirePrograms({"dbus-daemon"});
        const auto configuration = directory_.path() / "bus.conf";
        writeFile(configuration, "<busconfig><type>session</type><listen>unix:dir=" + directory_.path().string() +
                                     "</listen>" +
                                     (services.empty() ? "" : "<servicedir>" + services + "</servicedir>") +
                                     "<policy context='default'><allow send_destination='*' eavesdrop='true'/>"
                                     "<allow eavesdrop='true'/><allow own='*'/></policy></busconfig>");
        daemon_.emplace(RunningProgram::piped(
            {"dbus-daemon", "--nofork", "--print-address", "--config-file=" + configuration.string()}));
        const std::string address = daemon_->firstLine();
        if (address.empty()) throw std::runtime_error("the session bus does not start");
        ::setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    }
    ~SessionBus() { stop(); }
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    void stop() {
        ::setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
        daemon_.reset();
    }

private:
    TemporaryDirectory directory_;
    std::optional<RunningProgram> daemon_;
};

/// A further connection to the test's session bus, closed with this.
class BusConnection {
public:
    BusConnection() {
        const auto flags = static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                                             G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        bus_ = g_dbus_connection_new_for_address_sync(std::getenv("DBUS_SESSION_BUS_ADDRESS"), flags, nullptr, nullptr,
                                                      nullptr);
        if (bus_ == nullptr) throw std::runtime_error("the test has no session bus");
    }
    ~BusConnection() {
        g_dbus_connection_close_sync(bus_, nullptr, nullptr);
        g_object_unref(bus_);
    }
    BusConnection(const BusConnection&) = delete;
    BusConnection& operator=(const BusConnection&) = delete;

    operator GDBusConnection*() const { return bus_; }  // NOLINT(google-explicit-constructor): as it is passed to C

    /// Gives the connection a name.
    void own(const char* name) const {
        GVariant* owned = g_dbus_connection_call_sync(
            bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", "RequestName",
            g_variant_new("(su)", name, 0U), nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        if (owned == nullptr) throw std::runtime_error(std::string("nobody can be ") + name);
        g_variant_unref(owned);
    }

private:
    GDBusConnection* bus_ = nullptr;
};

}  // namespace tarvex::test
