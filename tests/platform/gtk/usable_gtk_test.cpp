// Processes in which GTK cannot be used: the host must live on.

#include <dlfcn.h>

#include "prelude.h"
#include "recorded_log.h"
#include "tarvex/client.h"
#include "tarvex/gtk.h"
#include "test_platform.h"

namespace tarvex {
namespace {

InformationView consentScreen() {
    return Client::shared().informationView("Study", std::nullopt, {}, std::nullopt, nullptr);
}

TEST(UsableGtk, SaysOnceThatThereIsNoDisplay) {
    ::unsetenv("WAYLAND_DISPLAY");
    ::setenv("DISPLAY", ":987654", 1);
    const test::TestPlatform platform;
    const test::RecordedLog log;
    gtk::addTo(*platform);
    EXPECT_EQ(gtk::widget(consentScreen()), nullptr);
    EXPECT_EQ(gtk::widget(consentScreen()), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("GTK 4 cannot be used: there is no display that it can open"));
}

TEST(UsableGtk, LeavesAProcessAloneThatHasAnotherMajorVersion) {
    // A library of that name, which is what GTK 4 would end the process for.
    void* other = dlopen(TARVEX_OTHER_GTK, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(other, nullptr) << dlerror();
    const test::TestPlatform platform;
    const test::RecordedLog log;
    gtk::addTo(*platform);
    EXPECT_TRUE(platform->keep("tarvex::gtk::BackgroundDetector", [] { return nullptr; })) << "nothing was added";
    EXPECT_EQ(gtk::widget(consentScreen()), nullptr);
    EXPECT_THAT(log.lines(),
                ElementsAre("GTK 4 cannot be used: another major version of GTK is loaded in this process"));
}

}  // namespace
}  // namespace tarvex
