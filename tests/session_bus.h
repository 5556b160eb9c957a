#pragma once

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

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

/// A session bus of the test's own, which its process and the programs that it starts take for theirs.
class SessionBus {
public:
    /// `services`: a directory of files that name what the bus starts on demand.
    explicit SessionBus(const char* services = nullptr) {
        requirePrograms({"dbus-daemon"});
        bus_ = g_test_dbus_new(G_TEST_DBUS_NONE);
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
    GTestDBus* bus_ = nullptr;
};

}  // namespace tarvex::test
