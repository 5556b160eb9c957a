#include "platform/glib/gio_application.h"

#include <glib.h>

#include "prelude.h"

namespace tarvex::platform {
namespace {

TEST(GioApplication, HandsTheUrlToTheApplicationThatTheDesktopHasSet) {
    const TemporaryDirectory home;
    const auto opened = home.path() / "opened";
    ::setenv("XDG_DATA_HOME", (home.path() / "data").c_str(), 1);
    ::setenv("XDG_DATA_DIRS", (home.path() / "none").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (home.path() / "config").c_str(), 1);
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
    while (!contentsOf(opened).ends_with('\n') && std::chrono::steady_clock::now() < deadline) {
        g_main_context_iteration(nullptr, FALSE);
        g_usleep(1000);
    }
    EXPECT_EQ(contentsOf(opened), "tarvextest://study/page?a=%20b\n");
}

}  // namespace
}  // namespace tarvex::platform
