#include "tarvex/gtk.h"

#include <dlfcn.h>

#include "prelude.h"
#include "recorded_log.h"
#include "screen.h"
#include "tarvex/client.h"
#include "test_platform.h"

namespace tarvex {
namespace {

using namespace test;

using Widget = platform::Handle<GtkWidget, g_object_unref>;

Widget overlay() {
    gtk_init_check();
    Widget widget(GTK_WIDGET(g_object_ref_sink(gtk_overlay_new())));
    gtk_overlay_set_child(GTK_OVERLAY(widget.get()), gtk_label_new("below"));
    return widget;
}

struct HostView : ::testing::Test {
    VirtualScreen screen;
    Widget host = overlay();
    Widget otherHost = overlay();
    std::shared_ptr<View> view = gtk::wrap(host.get());
    std::shared_ptr<View> unseen = makeHeadlessView();
};

TEST_F(HostView, ShowsTheWidgetsOfItsChildrenTheLastOnTopAndEachOnlyOnce) {
    const auto a = gtk::wrap(gtk_label_new("a"));
    const auto b = gtk::wrap(gtk_label_new("b"));
    for (const auto& child : {a, unseen, b, b, std::shared_ptr<View>(), view})
        view->addSubview(child);
    EXPECT_THAT(textsOf(host.get()), ElementsAre("below", "a", "b"));
    view->addSubview(a);
    EXPECT_THAT(textsOf(host.get()), ElementsAre("below", "b", "a"));
    EXPECT_THAT(view->subviews(), ElementsAre(unseen, b, a));
}

TEST_F(HostView, GivesAWidgetToAnotherParentUnlessTheHostHasTakenIt) {
    const Widget panel(GTK_WIDGET(g_object_ref_sink(gtk_label_new("panel"))));
    auto child = gtk::wrap(panel.get());
    const auto other = gtk::wrap(otherHost.get());
    view->addSubview(child);
    other->addSubview(child);
    EXPECT_THAT(textsOf(host.get()), ElementsAre("below"));
    EXPECT_THAT(textsOf(otherHost.get()), ElementsAre("below", "panel"));
    child->addSubview(other);
    unseen->addSubview(child);
    EXPECT_THAT(textsOf(otherHost.get()), ElementsAre("below"));
    EXPECT_EQ(child.use_count(), 2);

    view->addSubview(child);
    gtk_overlay_remove_overlay(GTK_OVERLAY(host.get()), panel.get());
    gtk_overlay_add_overlay(GTK_OVERLAY(otherHost.get()), panel.get());
    unseen->addSubview(child);
    view->addSubview(child);
    EXPECT_THAT(textsOf(otherHost.get()), ElementsAre("below", "panel"));
    EXPECT_THAT(textsOf(host.get()), ElementsAre("below"));
}

TEST_F(HostView, TakesWidgetsOffWhenParentOrChildEnds) {
    const Widget panel(GTK_WIDGET(g_object_ref_sink(gtk_label_new("panel"))));
    auto child = gtk::wrap(panel.get());
    view->addSubview(child);
    view = gtk::wrap(host.get());
    EXPECT_THAT(textsOf(host.get()), ElementsAre("below"));
    view->addSubview({std::shared_ptr<void>(), child.get()});  // lent, not shared
    EXPECT_THAT(textsOf(host.get()), ElementsAre("below", "panel"));
    child.reset();
    EXPECT_THAT(textsOf(host.get()), ElementsAre("below"));
}

TEST_F(HostView, OutlivesItsWidgetAndTakesWidgetsThatAreNoOverlays) {
    const auto child = gtk::wrap(gtk_label_new("panel"));
    view->addSubview(child);
    host.reset();
    view->addSubview(unseen);
    view->addSubview(child);
    EXPECT_EQ(child.use_count(), 2);
    view.reset();
    EXPECT_EQ(child.use_count(), 1);
    const Widget label(GTK_WIDGET(g_object_ref_sink(gtk_label_new(""))));
    for (GtkWidget* widget : {static_cast<GtkWidget*>(nullptr), label.get()})
        gtk::wrap(widget)->addSubview(child);
}

InformationView consentScreen() {
    return Client::shared().informationView("Study", std::nullopt, {}, std::nullopt, nullptr);
}

TEST(UsableGtk, WarnsOnceThatThereIsNoDisplay) {
    ::unsetenv("WAYLAND_DISPLAY");
    ::setenv("DISPLAY", ":987654", 1);
    const TestPlatform platform;
    const RecordedLog log;
    gtk::addTo(*platform);
    EXPECT_EQ(gtk::widget(consentScreen()), nullptr);
    EXPECT_EQ(gtk::widget(consentScreen()), nullptr);
    EXPECT_THAT(log.lines(), ElementsAre("GTK 4 cannot be used: there is no display that it can open"));
}

TEST(UsableGtk, LeavesAProcessAloneThatHasAnotherMajorVersion) {
    // A library of that name, which is what GTK 4 would end the process for.
    void* other = dlopen(TARVEX_OTHER_GTK, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(other, nullptr) << dlerror();
    const TestPlatform platform;
    const RecordedLog log;
    gtk::addTo(*platform);
    EXPECT_TRUE(platform->keep("tarvex::gtk::BackgroundDetector", [] { return nullptr; })) << "nothing was added";
    EXPECT_EQ(gtk::widget(consentScreen()), nullptr);
    EXPECT_THAT(log.lines(),
                ElementsAre("GTK 4 cannot be used: another major version of GTK is loaded in this process"));
}

}  // namespace
}  // namespace tarvex
