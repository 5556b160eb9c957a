// What a host does wrong: a critical message or an error, and the process goes on.

#include "glib_host.h"

namespace tarvex {
namespace {

using namespace test;

constexpr int noReader = 7;

/// The function as an interpreter calls it: with a number in the place of a reader.
template <typename Result, typename... Others>
auto called(Result (*function)(TarvexClient*, TarvexReader, Others...)) {
    return reinterpret_cast<Result (*)(TarvexClient*, int, Others...)>(function);
}

TEST(GlibBadInput, NullAndNumbersThatAreNoReaderAreCritical) {
    const GlibHost host;
    expectCritical("TARVEX_IS_CLIENT",
                   [] { tarvex_client_start(nullptr, TARVEX_READER_DISTANCE, 1, nullptr, nullptr); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_client_stop(nullptr, TARVEX_READER_DISTANCE); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_client_stop_all(nullptr); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_client_in_progress(nullptr, TARVEX_READER_DISTANCE); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_client_has_consented(nullptr, TARVEX_READER_DISTANCE); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_client_share_async(nullptr, TRUE, nullptr, nullptr); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_client_share_finish(nullptr, nullptr, nullptr); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_client_delete_all(nullptr); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_client_get_count(nullptr); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_client_get_distance_available(nullptr); });
    expectCritical("TARVEX_IS_CLIENT", [] { tarvex_testing_use_loopback(nullptr, 1, ""); });
    expectCritical("certificate_pem", [&] { tarvex_testing_use_loopback(host.client, 1, nullptr); });
    expectCritical("IS_LIGHT_SENSOR", [] { tarvex_testing_light_sensor_report(nullptr, 0, 0, 0, 0, 0); });
    expectCritical("IS_CONSENT_REQUEST", [] { tarvex_consent_request_consent(nullptr, nullptr); });
    expectCritical("IS_CONSENT_REQUEST", [] { tarvex_consent_request_cancel(nullptr, nullptr); });
    expectCritical("IS_CONSENT_REQUEST", [] { tarvex_consent_request_learn_more(nullptr, nullptr); });
    expectCritical("readers != nullptr",
                   [] { g_object_unref(tarvex_consent_request_new(nullptr, nullptr, nullptr, 1, nullptr)); });
    expectCritical("IS_CONSENT_REQUEST", [] { tarvex_consent_request_get_readers(nullptr, nullptr); });
    expectCritical("isReader", [&] { called(tarvex_client_start)(host.client, noReader, 1, nullptr, nullptr); });
    expectCritical("isReader", [&] { called(tarvex_client_stop)(host.client, noReader); });
    expectCritical("isReader", [&] { called(tarvex_client_in_progress)(host.client, noReader); });
    expectCritical("isReader", [&] { called(tarvex_client_has_consented)(host.client, noReader); });
    expectCritical("utf8", [&] { g_object_set(host.client, "application-name", "\xff", nullptr); });
    auto* noView = reinterpret_cast<TarvexView*>(host.client);
    expectCritical("TARVEX_IS_VIEW",
                   [&] { tarvex_client_start(host.client, TARVEX_READER_DISTANCE, 1, noView, nullptr); });
    GTask* stranger = g_task_new(host.client, nullptr, nullptr, nullptr);
    expectCritical("is_tagged", [&] { tarvex_client_share_finish(host.client, G_ASYNC_RESULT(stranger), nullptr); });
    g_object_unref(stranger);
    EXPECT_FALSE(std::filesystem::exists(host.data())) << "nothing of it used the library";
}

TEST(GlibBadInput, ARequestLeavesOutWhatIsNoReaderAndNoLink) {
    const GlibHost host;
    const std::array<int, 2> readers{TARVEX_READER_AMBIENT_LIGHT, noReader};
    g_test_expect_message("Tarvex", G_LOG_LEVEL_CRITICAL, "*no absolute URL*");
    g_test_expect_message("Tarvex", G_LOG_LEVEL_CRITICAL, "*no reader 7*");
    TarvexConsentRequest* request =
        tarvex_consent_request_new("Light Study", "Why we ask.", reinterpret_cast<const TarvexReader*>(readers.data()),
                                   readers.size(), "not a link");
    g_test_assert_expected_messages();
    gsize kept = 0;
    EXPECT_EQ(*tarvex_consent_request_get_readers(request, &kept), TARVEX_READER_AMBIENT_LIGHT);
    EXPECT_EQ(kept, 1U);
    char* name = nullptr;
    char* description = nullptr;
    char* link = nullptr;
    g_object_get(request, "application-name", &name, "description", &description, "link", &link, nullptr);
    EXPECT_STREQ(name, "Light Study");
    EXPECT_STREQ(description, "Why we ask.");
    EXPECT_EQ(link, nullptr);
    expectCritical("link", [&] { tarvex_consent_request_learn_more(request, nullptr); });
    g_free(name);
    g_free(description);
    g_object_unref(request);
    auto* empty = TARVEX_CONSENT_REQUEST(g_object_new(TARVEX_TYPE_CONSENT_REQUEST, nullptr));
    EXPECT_TRUE(tarvex_consent_request_cancel(empty, nullptr));
    g_object_unref(empty);
}

TEST(GlibBadInput, WhatBelongsOnTheMainThreadIsRefusedOnAnother) {
    const GlibHost host;
    Outcome outcome;
    Failure failure;
    TarvexConsentRequest* request = tarvex_consent_request_new(nullptr, nullptr, nullptr, 0, nullptr);
    std::thread([&] {
        EXPECT_FALSE(tarvex_consent_request_consent(request, &failure));
        tarvex_client_share_async(host.client, TRUE, Outcome::take, &outcome);
    }).join();
    EXPECT_TRUE(failure.is(TARVEX_HOST_ERROR, TARVEX_HOST_ERROR_WRONG_THREAD)) << failure.text();
    EXPECT_TRUE(runUntil([&] { return outcome.isThere; }));
    EXPECT_TRUE(outcome.error.is(TARVEX_HOST_ERROR, TARVEX_HOST_ERROR_WRONG_THREAD)) << outcome.error.text();
    EXPECT_THAT(host.documents(), IsEmpty());
    g_object_unref(request);
}

TEST(GlibBadInput, WhatIsDroppedInTheMiddleIsFinishedAllTheSame) {
    const GlibHost host;
    host.consent({TARVEX_READER_AMBIENT_LIGHT});
    g_object_set(host.backend, "holding", TRUE, nullptr);
    Outcome outcome;
    tarvex_client_share_async(host.client, TRUE, Outcome::take, &outcome);
    tarvex_client_share_async(host.client, TRUE, nullptr, nullptr);
    EXPECT_TRUE(runUntil([&] { return host.documents().size() == 2; }));
    EXPECT_FALSE(outcome.isThere);
    g_object_set(host.backend, "holding", FALSE, nullptr);
    EXPECT_TRUE(runUntil([&] { return outcome.isThere; }));
    EXPECT_TRUE(outcome.succeeded);

    // Nobody holds the request any longer: it has to go once it is answered.
    TarvexConsentRequest* request = tarvex_consent_request_new(nullptr, nullptr, nullptr, 0, nullptr);
    gpointer watched = request;
    g_object_add_weak_pointer(G_OBJECT(request), &watched);
    EXPECT_TRUE(tarvex_consent_request_consent(request, nullptr));
    g_object_unref(request);
    EXPECT_TRUE(runUntil([&] { return watched == nullptr; }));
}

TEST(GlibBadInput, AnExitWithAnUploadUnderWayIsAGoodOne) {
    EXPECT_EXIT(
        {
            GlibHost host;
            g_object_set(host.backend, "holding", TRUE, nullptr);
            Outcome outcome;
            tarvex_client_share_async(host.client, TRUE, Outcome::take, &outcome);
            runUntil([&] { return host.documents().size() == 1; });
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "");
}

TEST(GlibBadInput, DoublesComeBeforeTheFirstUse) {
    const GlibHost host;
    EXPECT_EQ(tarvex_client_get_count(host.client), 0);
    expectCritical("first use", [&] { g_object_unref(tarvex_testing_light_sensor_new(host.client)); });
    expectCritical("first use", [&] { g_object_unref(tarvex_testing_backend_new(host.client)); });
    expectCritical("first use", [&] { tarvex_testing_use_loopback(host.client, 1, "certificate"); });
}

}  // namespace
}  // namespace tarvex
