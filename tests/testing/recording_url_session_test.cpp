#include "testing/recording_url_session.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/network/posted_request.h"

namespace tarvex::testing {
namespace {

using platform::UrlResponse;

TEST(RecordingUrlSession, KeepsWhatWasResumedAndAnswersWhenTold) {
    RecordingUrlSession session;
    std::vector<int> statuses;
    const auto keepStatus = [&](const auto& response, const auto& error) {
        EXPECT_FALSE(error);
        statuses.push_back(response->statusCode.value_or(0));
    };
    const auto first = session.dataTask(test::request(test::bodyOf("{1}")), keepStatus);
    const auto second = session.dataTask(test::request(test::bodyOf("{2}")), keepStatus);
    EXPECT_TRUE(session.requests().empty());
    second->resume();
    second->resume();
    first->resume();

    const auto requests = session.requests();
    ASSERT_EQ(requests.size(), 2U);
    EXPECT_EQ(requests[0].method, "POST");
    EXPECT_EQ(requests[0].url, "https://backend.example/tracking");
    EXPECT_THAT(requests[0].headers, ::testing::ElementsAre(::testing::Pair("Content-Type", "application/json")));
    EXPECT_EQ(requests[0].body, "{2}");
    EXPECT_EQ(requests[0].timeout, std::chrono::seconds(60));
    EXPECT_EQ(requests[1].body, "{1}");

    EXPECT_TRUE(session.respond(1, UrlResponse{.statusCode = 204}, std::nullopt));
    EXPECT_TRUE(session.respond(0, UrlResponse{.statusCode = 200}, std::nullopt));
    EXPECT_FALSE(session.respond(0, UrlResponse{.statusCode = 200}, std::nullopt)) << "each is answered once";
    EXPECT_FALSE(session.respond(2, UrlResponse{.statusCode = 200}, std::nullopt)) << "there is no such request";
    EXPECT_THAT(statuses, ::testing::ElementsAre(204, 200));
}

}  // namespace
}  // namespace tarvex::testing
