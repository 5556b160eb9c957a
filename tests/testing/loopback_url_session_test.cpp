// A backend and the transport that hosts reach it with, end to end.

#include "tarvex/testing/loopback_url_session.h"

#include "platform/curl/posted_request.h"
#include "prelude.h"
#include "recording_backend.h"

namespace tarvex::testing {
namespace {

using test::RecordingBackend;
using ::testing::FieldsAre;

platform::UrlRequest documentFor(const std::string& host, std::string_view document) {
    return test::request(test::bodyOf(document), 60s, "https://" + host + "/tracking");
}

TEST(LoopbackUrlSession, BringsADocumentForTheBackendToTheLoopbackServer) {
    setenv("https_proxy", "http://127.0.0.1:9", 1);  // passed by
    const std::string document = R"({"userId":"u","trackingData":[{},{}]})";
    for (const int status : {200, 503}) {
        const TemporaryDirectory directory;
        std::vector<RecordingBackend::Document> received;
        const RecordingBackend backend({.directory = directory.path(), .host = TARVEX_BACKEND_HOST, .status = status},
                                       [&](const auto& arrived) { received.push_back(arrived); });
        const auto session =
            makeLoopbackUrlSession(static_cast<std::uint16_t>(std::stoi(contentsOf(directory.path() / "port"))),
                                   contentsOf(directory.path() / "certificate.pem"));
        const auto outcomeOf = [&](platform::UrlRequest request) {
            return test::PostedRequest(*session, std::move(request)).outcome();
        };
        const auto taken = outcomeOf(documentFor(TARVEX_BACKEND_HOST, document));
        ASSERT_EQ(taken.status, status) << taken.error;
        EXPECT_EQ(contentsOf(directory.path() / "document-1.json"), document);
        EXPECT_THAT(received,
                    ElementsAre(FieldsAre(directory.path() / "document-1.json", document.size(), std::size_t{2})));

        EXPECT_EQ(outcomeOf(documentFor(TARVEX_BACKEND_HOST, "{}")).status, 400);
        auto text = documentFor(TARVEX_BACKEND_HOST, document);
        text.headers = {{"Content-Type", "text/plain"}};
        EXPECT_EQ(outcomeOf(std::move(text)).status, 415);
        EXPECT_EQ(received.size(), 1U);
        EXPECT_THAT(outcomeOf(documentFor("localhost:1", document)).error, HasSubstr("localhost port 1"));
    }
}

}  // namespace
}  // namespace tarvex::testing
