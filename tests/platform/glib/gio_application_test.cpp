#include "platform/glib/gio_application.h"

#include <glib.h>

#include "prelude.h"
#include "recorded_log.h"

namespace tarvex::platform {
namespace {

TEST(GioApplication, HandsTheUrlToTheApplicationThatTheDesktopHasSetAndWarnsWhereThereIsNone) {
    const TemporaryDirectory home;
    const auto opened = home.path() / "opened";
    for (const char* variable : {"XDG_DATA_HOME", "XDG_DATA_DIRS", "XDG_CONFIG_HOME"})
        ::setenv(variable, (home.path() / variable).c_str(), 1);
    writeFile(home.path() / "XDG_CONFIG_HOME/mimeapps.list",
              "[Default Applications]\nx-scheme-handler/tarvextest=recorder.desktop\n");
    writeFile(home.path() / "XDG_DATA_HOME/applications/recorder.desktop",
              "[Desktop Entry]\nType=Application\nName=Recorder\nMimeType=x-scheme-handler/tarvextest;\n"
              "Exec=/bin/sh -c \"echo \\\\$0 > " +
                  opened.native() + "\" %u\n");

    const test::RecordedLog log;
    GioApplication application;
    for (const char* url : {"unknownscheme://ignored", "tarvextest://study/page?a=%20b"})
        application.openUrl(Url::parse(url).value());
    EXPECT_TRUE(eventually([&] {
        g_main_context_iteration(nullptr, FALSE);
        return contentsOf(opened).ends_with('\n') && !log.lines().empty();
    }));
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr("no application opens unknownscheme://ignored: ")));
    EXPECT_EQ(contentsOf(opened), "tarvextest://study/page?a=%20b\n");
}

}  // namespace
}  // namespace tarvex::platform
