// The consent screen as a widget of the layer.

#include <tarvex-gtk-glib.h>

#include "glib_host.h"
#include "screen.h"

namespace tarvex {
namespace {

using test::ConsentWindow;
using test::expectCritical;
using test::GlibHost;
using test::textsOf;
using test::VirtualScreen;

TarvexConsentRequest* makeRequest(const char* name, std::vector<TarvexReader> readers) {
    return tarvex_consent_request_new(name, "Why we ask.", readers.data(), readers.size(), nullptr);
}

TEST(GlibConsentScreen, ShowsItsRequestTellsTheHostWhatWasPressedAndMayGoMeanwhile) {
    const VirtualScreen screen;
    const GlibHost host;
    gtk_init();
    TarvexConsentRequest* request = makeRequest("Light Study", {TARVEX_READER_AMBIENT_LIGHT});
    std::vector<bool> decisions;
    g_signal_connect(request, "decided",
                     G_CALLBACK(+[](TarvexConsentRequest*, gboolean consented, std::vector<bool>* all) {
                         all->push_back(consented != FALSE);
                     }),
                     &decisions);
    GtkWidget* widget = tarvex_gtk_consent_screen_new(request);
    g_object_ref_sink(widget);
    std::optional<ConsentWindow> window(widget);
    EXPECT_THAT(textsOf(widget), ::testing::Contains(HasSubstr("\"Light Study\" would like")));
    EXPECT_THAT(textsOf(widget), ::testing::Contains("Why we ask."));
    window->click(window->button("Cancel"));
    EXPECT_TRUE(test::runUntil([&] { return decisions.size() == 1; }));
    EXPECT_FALSE(tarvex_client_has_consented(host.client, TARVEX_READER_AMBIENT_LIGHT));
    window->click(window->button("I consent"));
    EXPECT_TRUE(test::runUntil([&] { return decisions.size() == 2; }));
    EXPECT_THAT(decisions, ElementsAre(false, true));
    EXPECT_TRUE(tarvex_client_has_consented(host.client, TARVEX_READER_AMBIENT_LIGHT));

    TarvexConsentRequest* other = makeRequest("Distance Study", {TARVEX_READER_DISTANCE});
    tarvex_gtk_consent_screen_set_request(TARVEX_GTK_CONSENT_SCREEN(widget), other);
    EXPECT_THAT(textsOf(widget), ::testing::Contains(HasSubstr("\"Distance Study\"")));
    EXPECT_THAT(textsOf(widget), Not(::testing::Contains(HasSubstr("\"Light Study\""))));
    g_object_unref(other);
    g_object_set(widget, "request", nullptr, nullptr);
    EXPECT_THAT(textsOf(widget), IsEmpty());
    EXPECT_EQ(tarvex_gtk_consent_screen_get_request(TARVEX_GTK_CONSENT_SCREEN(widget)), nullptr);

    // In the middle of its request.
    g_object_set(widget, "request", request, nullptr);
    gpointer watched = request;
    g_object_add_weak_pointer(G_OBJECT(request), &watched);
    EXPECT_TRUE(tarvex_consent_request_consent(request, nullptr));
    g_object_unref(request);
    g_object_unref(widget);
    window.reset();
    EXPECT_TRUE(test::runUntil([&] { return watched == nullptr; })) << "nothing else holds it";
    EXPECT_THAT(decisions, ElementsAre(false, true, true));
}

TEST(GlibConsentScreen, BadInputIsCritical) {
    const VirtualScreen screen;
    gtk_init();
    TarvexConsentRequest* request = makeRequest(nullptr, {TARVEX_READER_AMBIENT_LIGHT});
    expectCritical("no name of its own", [&] {
        GtkWidget* widget = tarvex_gtk_consent_screen_new(request);
        EXPECT_THAT(textsOf(widget), IsEmpty());
        g_object_unref(g_object_ref_sink(widget));
    });
    GtkWidget* widget = tarvex_gtk_consent_screen_new(nullptr);
    g_object_ref_sink(widget);
    auto* noScreen = reinterpret_cast<TarvexGtkConsentScreen*>(request);
    expectCritical("IS_CONSENT_SCREEN", [&] { tarvex_gtk_consent_screen_set_request(noScreen, nullptr); });
    expectCritical("IS_CONSENT_SCREEN", [] { tarvex_gtk_consent_screen_get_request(nullptr); });
    auto* noRequest = reinterpret_cast<TarvexConsentRequest*>(widget);
    expectCritical("IS_CONSENT_REQUEST",
                   [&] { tarvex_gtk_consent_screen_set_request(TARVEX_GTK_CONSENT_SCREEN(widget), noRequest); });
    expectCritical("IS_CLIENT", [] { tarvex_gtk_add_to(nullptr); });
    expectCritical("IS_OVERLAY", [] { g_object_unref(tarvex_gtk_wrap(nullptr)); });
    g_object_unref(widget);
    g_object_unref(request);
}

TEST(GlibConsentScreen, BelongsToAHostWhoseWayToTheBackgroundIsNoticedAlsoLate) {
    const VirtualScreen screen;
    const GlibHost host;
    gtk_init();
    EXPECT_EQ(tarvex_client_get_count(host.client), 0) << "the first use";
    tarvex_gtk_add_to(host.client);
    tarvex_gtk_add_to(host.client);
    auto* overlay = GTK_OVERLAY(g_object_ref_sink(gtk_overlay_new()));
    TarvexView* view = tarvex_gtk_wrap(overlay);
    EXPECT_TRUE(TARVEX_IS_VIEW(view));
    g_object_unref(view);
    g_object_unref(overlay);
    auto* window = GTK_WINDOW(gtk_window_new());
    gtk_window_present(window);
    EXPECT_TRUE(test::runUntil([&] { return gtk_window_is_active(window) != FALSE; }));
    EXPECT_THAT(host.documents(), IsEmpty());
    gtk_window_minimize(window);
    EXPECT_TRUE(test::runUntil([&] { return host.documents().size() == 1; }));
    gtk_window_destroy(window);
}

}  // namespace
}  // namespace tarvex
