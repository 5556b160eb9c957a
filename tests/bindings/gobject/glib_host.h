#pragma once

#include <tarvex-testing-glib.h>

#include "main_loop.h"
#include "prelude.h"

namespace tarvex::test {

/// An error that a call has set; freed at the end.
class Failure {
public:
    Failure() = default;
    ~Failure() { g_clear_error(&error_); }
    Failure(const Failure&) = delete;
    Failure& operator=(const Failure&) = delete;

    GError** operator&() {  // NOLINT(google-runtime-operator): as it is passed to C
        g_clear_error(&error_);
        return &error_;
    }
    bool is(GQuark domain, int code) const { return g_error_matches(error_, domain, code) != FALSE; }
    std::string text() const { return error_ != nullptr ? error_->message : ""; }

private:
    GError* error_ = nullptr;
};

/// Expects that `act` logs exactly one critical message of the layer, which has `part` in it.
inline void expectCritical(const std::string& part, const std::function<void()>& act) {
    g_test_expect_message("Tarvex", G_LOG_LEVEL_CRITICAL, ("*" + part + "*").c_str());
    act();
    g_test_assert_expected_messages();
}

/// What a test's callback was given.
struct Outcome {
    bool isThere = false;
    bool succeeded = false;
    GThread* thread = nullptr;
    Failure error;

    static void take(GObject* client, GAsyncResult* result, gpointer self) {
        auto* outcome = static_cast<Outcome*>(self);
        outcome->succeeded = tarvex_client_share_finish(TARVEX_CLIENT(client), result, &outcome->error) != FALSE;
        outcome->thread = g_thread_self();
        outcome->isThere = true;
    }
};

/// A host in this process, with a sensor and a backend in the test's hands.
class GlibHost {
public:
    GlibHost() {
        g_object_set(client, "application-id", "org.tarvex.GlibTest", "data-directory", data().c_str(), nullptr);
        g_signal_connect(client, "notify::count",
                         G_CALLBACK(+[](TarvexClient*, GParamSpec*, GlibHost* self) { ++self->notifications; }), this);
    }
    ~GlibHost() {
        tarvex_client_stop_all(client);
        g_signal_handlers_disconnect_by_data(client, this);
        g_object_unref(sensor);
        g_object_unref(backend);
    }
    GlibHost(const GlibHost&) = delete;
    GlibHost& operator=(const GlibHost&) = delete;

    /// Asks for the readers, and consents.
    void consent(std::vector<TarvexReader> readers) const {
        TarvexConsentRequest* request =
            tarvex_consent_request_new(nullptr, nullptr, readers.data(), readers.size(), nullptr);
        int answer = -1;
        g_signal_connect(request, "decided",
                         G_CALLBACK(+[](TarvexConsentRequest*, gboolean consented, int* to) { *to = consented; }),
                         &answer);
        ASSERT_TRUE(tarvex_consent_request_consent(request, nullptr));
        EXPECT_EQ(answer, -1) << "the answer comes on the main loop";
        g_object_unref(request);
        EXPECT_TRUE(runUntil([&] { return answer == 1; })) << "it lives until the answer";
    }

    std::filesystem::path data() const { return directory_.path() / "data"; }
    std::vector<std::string> documents() const {
        char** all = tarvex_testing_backend_get_documents(backend);
        std::vector<std::string> texts(all, all + g_strv_length(all));
        g_strfreev(all);
        return texts;
    }

    TarvexClient* client = tarvex_client_get_default();
    TarvexTestingLightSensor* sensor = tarvex_testing_light_sensor_new(client);
    TarvexTestingBackend* backend = tarvex_testing_backend_new(client);
    int notifications = 0;

private:
    TemporaryDirectory directory_;
};

}  // namespace tarvex::test
