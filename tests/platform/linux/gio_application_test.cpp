#include "platform/linux/gio_application.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include "platform/linux/host/property_list_documents.h"
#include "tarvex/export.h"
#include "temporary_directory.h"

// The thread sanitizer does not know the locks that GLib builds on futexes, and takes what GLib's own threads exchange
// under them for races. Nothing else is tested in this executable.
extern "C" TARVEX_EXPORT const char* __tsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier,cert-*)
const char* __tsan_default_suppressions() {                          // NOLINT(bugprone-reserved-identifier,cert-*)
    return "race:libglib-2.0.so\nrace:libgio-2.0.so\n";
}

namespace tarvex::platform {
namespace {

using namespace test;

std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(GioApplication, HandsTheUrlToTheApplicationThatTheDesktopHasSet) {
    const TemporaryDirectory home;
    const auto opened = home.path() / "opened";
    ::setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
    ::setenv("XDG_DATA_DIRS", (home.path() / "none").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (home.path() / "config").c_str(), 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "disabled:", 1);
    writeFile(home.path() / "config/mimeapps.list",
              "[Default Applications]\nx-scheme-handler/tarvextest=recorder.desktop\n");
    writeFile(home.path() / "data/applications/recorder.desktop",
              "[Desktop Entry]\nType=Application\nName=Recorder\nMimeType=x-scheme-handler/tarvextest;\n"
              "Exec=/bin/sh -c \"echo \\\\$0 > " +
                  opened.native() + "\" %u\n");

    GioApplication application;
    for (const auto& url : {Url::parse("unknownscheme://ignored"), Url::parse("tarvextest://study/page?a=%20b")}) {
        if (url) application.openUrl(*url);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!contents(opened).ends_with('\n') && std::chrono::steady_clock::now() < deadline) {
        g_main_context_iteration(nullptr, FALSE);
        g_usleep(1000);
    }
    EXPECT_EQ(contents(opened), "tarvextest://study/page?a=%20b\n");
}

}  // namespace
}  // namespace tarvex::platform
