// The C interface, as a host in C sees it.

#include "glib_host.h"
#include "private.h"
#include "tarvex/tarvex_error.h"
#include "tarvex/testing/scripted_face_tracking.h"

namespace tarvex {
namespace {

using namespace test;

TEST(GlibIdentity, WithoutANameNothingIsStoredAndWithOneItIsTheApplicationsOwn) {
    const TemporaryDirectory home;
    ::setenv("XDG_DATA_HOME", home.path().c_str(), 1);
    TarvexClient* client = tarvex_client_get_default();
    Failure failure;
    EXPECT_FALSE(tarvex_client_start(client, TARVEX_READER_AMBIENT_LIGHT, 1, nullptr, &failure));
    EXPECT_TRUE(failure.is(TARVEX_HOST_ERROR, TARVEX_HOST_ERROR_NO_APPLICATION_ID)) << failure.text();
    expectCritical("application-id",
                   [&] { EXPECT_FALSE(tarvex_client_has_consented(client, TARVEX_READER_DISTANCE)); });
    expectCritical("application-id", [&] { EXPECT_EQ(tarvex_client_get_count(client), 0); });
    expectCritical("application-id", [&] { tarvex_client_delete_all(client); });
    EXPECT_TRUE(std::filesystem::is_empty(home.path()));

    GApplication* application = g_application_new("org.tarvex.First", G_APPLICATION_NON_UNIQUE);
    EXPECT_FALSE(tarvex_client_start(client, TARVEX_READER_AMBIENT_LIGHT, 1, nullptr, &failure));
    EXPECT_TRUE(failure.is(TARVEX_ERROR, TARVEX_ERROR_NO_CONSENT_TO_TRACK)) << failure.text();
    EXPECT_TRUE(std::filesystem::exists(home.path() / "org.tarvex.First/UserDefaults.sqlite"));
    EXPECT_FALSE(tarvex_client_start(client, TARVEX_READER_DISTANCE, 1, nullptr, &failure));
    EXPECT_TRUE(failure.is(TARVEX_ERROR, TARVEX_ERROR_USAGE_DESCRIPTION));
    EXPECT_EQ(failure.text(), TarvexError::usageDescription("NSCameraUsageDescription").errorDescription());

    GApplication* second = g_application_new("org.tarvex.Second", G_APPLICATION_NON_UNIQUE);
    EXPECT_FALSE(tarvex_client_start(client, TARVEX_READER_AMBIENT_LIGHT, 1, nullptr, &failure));
    EXPECT_TRUE(failure.is(TARVEX_ERROR, TARVEX_ERROR_NO_CONSENT_TO_TRACK)) << "the first one is still the default";
    g_application_set_default(second);
    EXPECT_FALSE(tarvex_client_start(client, TARVEX_READER_AMBIENT_LIGHT, 1, nullptr, &failure));
    EXPECT_TRUE(failure.is(TARVEX_HOST_ERROR, TARVEX_HOST_ERROR_OTHER_APPLICATION)) << failure.text();
    expectCritical("set before its first use",
                   [&] { g_object_set(client, "application-id", "org.tarvex.New", nullptr); });
    g_object_unref(second);
    EXPECT_FALSE(std::filesystem::exists(home.path() / "org.tarvex.Second"));
    g_object_unref(application);
    EXPECT_EQ(tarvex_client_get_count(client), 0) << "it outlives its application";
}

TEST(GlibErrors, NameWhatDistancesLackInTheLibrarysWords) {
    const GlibHost host;
    g_object_set(host.client, "camera-usage-description", "The study measures eye distances.", nullptr);
    const auto start = [&](TarvexView* view, const TarvexError& expected) {
        Failure failure;
        EXPECT_FALSE(tarvex_client_start(host.client, TARVEX_READER_DISTANCE, 4, view, &failure));
        EXPECT_TRUE(failure.is(TARVEX_ERROR, static_cast<int>(expected.code()))) << failure.text();
        EXPECT_EQ(failure.text(), expected.errorDescription());
    };
    start(nullptr, TarvexError::noConsentToTrack());
    host.consent({TARVEX_READER_DISTANCE});
    EXPECT_TRUE(tarvex_client_has_consented(host.client, TARVEX_READER_DISTANCE));
    EXPECT_FALSE(tarvex_client_has_consented(host.client, TARVEX_READER_AMBIENT_LIGHT));
    start(nullptr, TarvexError::noViewToAttachForDistanceTracking());
    if (tarvex_client_get_distance_available(host.client) != FALSE) GTEST_SKIP() << "this machine has a camera";
    TarvexView* view = tarvex_view_new();
    start(view, TarvexError::distanceTrackingIsNotAvailable());
    g_object_unref(view);
    EXPECT_FALSE(tarvex_client_in_progress(host.client, TARVEX_READER_DISTANCE));
}

/// A camera that a test plugs in.
class PluggedCamera final : public platform::FaceTracking {
public:
    explicit PluggedCamera(const bool& isPlugged) : isPlugged_(isPlugged) {}

    bool isSupported() const override { return isPlugged_; }
    int supportedNumberOfTrackedFaces() const override { return 1; }
    [[nodiscard]] std::shared_ptr<platform::FaceTrackingSceneView> makeSceneView() override {
        return faces_.makeSceneView();
    }

private:
    const bool& isPlugged_;
    testing::ScriptedFaceTracking faces_;
};

TEST(GlibClient, StartsDistancesWhereThereIsACameraAndNotifiesWhenOneHasCome) {
    const GlibHost host;
    g_object_set(host.client, "camera-usage-description", "The study measures eye distances.", nullptr);
    static bool isPlugged = false;  // lives as long as the platform
    ASSERT_TRUE(tarvex_private_customize(
        [](platform::Platform& platform) { platform.setFaceTracking(std::make_unique<PluggedCamera>(isPlugged)); }));
    host.consent({TARVEX_READER_DISTANCE});
    int notifications = 0;
    g_signal_connect(host.client, "notify::distance-available",
                     G_CALLBACK(+[](TarvexClient*, GParamSpec*, int* number) { ++*number; }), &notifications);
    EXPECT_FALSE(tarvex_client_get_distance_available(host.client));
    TarvexView* view = tarvex_view_new();
    EXPECT_FALSE(tarvex_client_start(host.client, TARVEX_READER_DISTANCE, 4, view, nullptr));
    isPlugged = true;
    EXPECT_TRUE(tarvex_client_start(host.client, TARVEX_READER_DISTANCE, 4, view, nullptr));
    g_object_unref(view);
    EXPECT_TRUE(tarvex_client_in_progress(host.client, TARVEX_READER_DISTANCE));
    EXPECT_FALSE(tarvex_client_in_progress(host.client, TARVEX_READER_AMBIENT_LIGHT));
    EXPECT_TRUE(runUntil([&] { return notifications == 1; }));
    EXPECT_TRUE(tarvex_client_get_distance_available(host.client));
    tarvex_client_stop(host.client, TARVEX_READER_DISTANCE);
    isPlugged = false;
    host.consent({TARVEX_READER_DISTANCE});
    EXPECT_TRUE(runUntil([&] { return notifications == 2; })) << "a decision looks as well";

    const TemporaryDirectory devices;
    tarvex_private_watch_cameras(devices.path().c_str());
    isPlugged = true;
    runUntil([] { return g_main_context_pending(nullptr) == FALSE; });  // it watches
    writeFile(devices.path() / "video7", "");
    EXPECT_TRUE(runUntil([&] { return notifications == 3; }));
    isPlugged = false;
    std::filesystem::remove(devices.path() / "video7");
    EXPECT_TRUE(runUntil([&] { return notifications == 4; }));
    g_signal_handlers_disconnect_by_data(host.client, &notifications);
}

TEST(GlibClient, SamplesNotifiesSharesAndDeletes) {
    GlibHost host;
    host.consent({TARVEX_READER_AMBIENT_LIGHT});
    EXPECT_TRUE(tarvex_client_start(host.client, TARVEX_READER_AMBIENT_LIGHT, 1, nullptr, nullptr));
    EXPECT_TRUE(tarvex_client_start(host.client, TARVEX_READER_AMBIENT_LIGHT, 5, nullptr, nullptr))
        << "it runs already";
    EXPECT_TRUE(tarvex_client_in_progress(host.client, TARVEX_READER_AMBIENT_LIGHT));
    tarvex_testing_light_sensor_report(host.sensor, 321, 1, 2, 3, 4);
    EXPECT_EQ(host.notifications, 0);
    EXPECT_TRUE(runUntil([&] { return host.notifications == 3; }));
    EXPECT_EQ(tarvex_client_get_count(host.client), 3) << "a notification for each sample";

    g_object_set(host.backend, "status", 500, nullptr);
    Outcome refused;
    tarvex_client_share_async(host.client, TRUE, Outcome::take, &refused);
    EXPECT_FALSE(refused.isThere);
    EXPECT_TRUE(runUntil([&] { return refused.isThere; }));
    EXPECT_TRUE(refused.error.is(TARVEX_ERROR, TARVEX_ERROR_HTTP_ERROR));
    EXPECT_THAT(refused.error.text(), HasSubstr("statusCode != 200"));

    tarvex_client_stop(host.client, TARVEX_READER_AMBIENT_LIGHT);
    EXPECT_FALSE(tarvex_client_in_progress(host.client, TARVEX_READER_AMBIENT_LIGHT));
    g_object_set(host.backend, "status", 200, nullptr);
    const int before = host.notifications;
    Outcome kept;
    tarvex_client_share_async(host.client, FALSE, Outcome::take, &kept);
    EXPECT_TRUE(runUntil([&] { return kept.isThere; }));
    EXPECT_TRUE(kept.succeeded) << kept.error.text();
    EXPECT_GE(tarvex_client_get_count(host.client), 3);
    EXPECT_EQ(host.notifications, before);
    Outcome deleted;
    tarvex_client_share_async(host.client, TRUE, Outcome::take, &deleted);
    EXPECT_TRUE(runUntil([&] { return deleted.isThere && host.notifications > before; }));
    EXPECT_EQ(tarvex_client_get_count(host.client), 0);
    ASSERT_THAT(host.documents(), SizeIs(3));
    EXPECT_THAT(host.documents().back(), HasSubstr(R"("lux":321)"));
    EXPECT_THAT(host.documents().back(), HasSubstr("org.tarvex.GlibTest"));

    EXPECT_TRUE(tarvex_client_start(host.client, TARVEX_READER_AMBIENT_LIGHT, 0, nullptr, nullptr));
    EXPECT_TRUE(runUntil([&] { return tarvex_client_get_count(host.client) > 0; }));
    tarvex_client_stop_all(host.client);
    EXPECT_TRUE(runUntil([&] { return g_main_context_pending(nullptr) == FALSE; }));
    const int sampled = host.notifications;
    for (int i = 0; i < 10; ++i)
        tarvex_client_delete_all(host.client);
    EXPECT_EQ(tarvex_client_get_count(host.client), 0);
    EXPECT_TRUE(runUntil([&] { return g_main_context_pending(nullptr) == FALSE; }));
    EXPECT_EQ(host.notifications, sampled + 1) << "several at once, while the main loop was busy";
}

TEST(GlibClient, CompletesAShareInTheContextOfItsCaller) {
    const GlibHost host;
    GMainContext* own = g_main_context_new();
    g_main_context_push_thread_default(own);
    Outcome outcome;
    tarvex_client_share_async(host.client, FALSE, Outcome::take, &outcome);
    g_main_context_pop_thread_default(own);
    EXPECT_TRUE(eventually([&] { return host.documents().size() == 1; }));
    for (int i = 0; i < 50; ++i) {
        g_main_context_iteration(nullptr, FALSE);
        g_usleep(1000);
    }
    EXPECT_FALSE(outcome.isThere);
    while (!outcome.isThere)
        g_main_context_iteration(own, TRUE);
    EXPECT_TRUE(outcome.succeeded);
    g_main_context_unref(own);
}

}  // namespace
}  // namespace tarvex
