#pragma once

#include <gio/gio.h>

namespace tarvex::test {

/// A session bus of the test's own, which its process and the programs that it starts take for theirs.
class SessionBus {
public:
    /// `services`: a directory of files that name what the bus starts on demand.
    explicit SessionBus(const char* services = nullptr) : bus_(g_test_dbus_new(G_TEST_DBUS_NONE)) {
        if (services != nullptr) g_test_dbus_add_service_dir(bus_, services);
        g_test_dbus_up(bus_);
    }
    ~SessionBus() {
        stop();
        g_object_unref(bus_);
    }
    SessionBus(const SessionBus&) = delete;
    SessionBus& operator=(const SessionBus&) = delete;

    void stop() {
        if (g_test_dbus_get_bus_address(bus_) != nullptr) g_test_dbus_stop(bus_);
    }

private:
    GTestDBus* bus_;
};

}  // namespace tarvex::test
