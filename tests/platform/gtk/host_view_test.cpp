#include "consent_window.h"
#include "prelude.h"
#include "tarvex/gtk.h"

namespace tarvex {
namespace {

using namespace test;

// The last child of an overlay is on top.
std::vector<GtkWidget*> layersOf(GtkWidget* overlay) {
    std::vector<GtkWidget*> layers;
    for (GtkWidget* child = gtk_widget_get_first_child(overlay); child != nullptr;
         child = gtk_widget_get_next_sibling(child))
        layers.push_back(child);
    return layers;
}

class HostViewTest : public ::testing::Test {
protected:
    static GtkWidget* overlay() {
        gtk_init_check();
        auto* widget = GTK_WIDGET(g_object_ref_sink(gtk_overlay_new()));
        gtk_overlay_set_child(GTK_OVERLAY(widget), gtk_button_new_with_label("Below"));
        return widget;
    }

    VirtualScreen screen;
    GtkWidget* host = overlay();
    std::shared_ptr<View> view = gtk::wrap(host);
};

TEST_F(HostViewTest, KeepsTheLastChildOnTopAndEachOnlyOnce) {
    const auto first = makeHeadlessView();
    const auto second = makeHeadlessView();
    view->addSubview(first);
    view->addSubview(second);
    const auto before = layersOf(host);
    ASSERT_EQ(before.size(), 3U);
    view->addSubview(second);
    EXPECT_EQ(layersOf(host), before) << "it is in front already";
    view->addSubview(first);
    EXPECT_EQ(layersOf(host)[1], before[2]);
    view->addSubview(nullptr);
    view->addSubview(view);
    EXPECT_EQ(layersOf(host).size(), 3U);
    EXPECT_EQ(first.use_count(), 2);
}

TEST_F(HostViewTest, TakesAChildFromTheParentThatItHadOfWhateverKind) {
    const auto child = makeHeadlessView();
    for (const auto& other : {gtk::wrap(overlay()), makeHeadlessView()}) {
        view->addSubview(child);
        EXPECT_EQ(layersOf(host).size(), 2U);
        other->addSubview(child);
        child->addSubview(other);
        EXPECT_EQ(layersOf(host).size(), 1U);
        EXPECT_EQ(child.use_count(), 2);
    }
}

TEST_F(HostViewTest, MovesAWidgetOfTheHostsWithoutLosingIt) {
    GtkWidget* panel = gtk_label_new("Panel");
    const auto child = gtk::wrap(panel);
    view->addSubview(child);
    view->addSubview(makeHeadlessView());
    view->addSubview(child);
    ASSERT_EQ(layersOf(host).size(), 3U);
    EXPECT_EQ(layersOf(host).back(), panel);

    GtkWidget* otherHost = overlay();
    const auto other = gtk::wrap(otherHost);
    other->addSubview(child);
    EXPECT_EQ(layersOf(otherHost).back(), panel);
    EXPECT_EQ(layersOf(host).size(), 2U);

    gtk_overlay_remove_overlay(GTK_OVERLAY(otherHost), panel);
    view->addSubview(child);
    EXPECT_EQ(layersOf(otherHost).size(), 1U) << "the host had taken it away already";
}

TEST_F(HostViewTest, LetsThePointerThroughToWhatLiesBelow) {
    view->addSubview(makeHeadlessView());
    const ConsentWindow window(host);
    int clicks = 0;
    GtkWidget* below = window.button("Below");
    g_signal_connect_swapped(below, "clicked", G_CALLBACK(+[](int* count) { ++*count; }), &clicks);
    EXPECT_EQ(window.boundsOf(layersOf(host).back()).size.height, window.boundsOf(below).size.height);
    window.click(below);
    EXPECT_EQ(clicks, 1);
}

TEST_F(HostViewTest, OutlivesItsWidgetAndTakesWidgetsThatAreNoOverlays) {
    const auto child = makeHeadlessView();
    view->addSubview(child);
    g_object_unref(host);
    view->addSubview(makeHeadlessView());
    view->addSubview(child);
    EXPECT_EQ(child.use_count(), 2);
    view.reset();
    EXPECT_EQ(child.use_count(), 1);
    for (GtkWidget* widget : {static_cast<GtkWidget*>(nullptr), GTK_WIDGET(g_object_ref_sink(gtk_label_new("")))})
        gtk::wrap(widget)->addSubview(child);
}

}  // namespace
}  // namespace tarvex
