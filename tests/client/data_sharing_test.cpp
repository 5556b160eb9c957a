#include "client/data_sharing.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/user_identifier.h"
#include "failing_object_store.h"
#include "test_platform.h"

namespace tarvex {

namespace {

using platform::TransportError;
using platform::UrlResponse;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr const char* endpoint = "https://backend.example/tracking";
constexpr const char* notSuccessful = "HTTPError: The request was not successfull (statusCode != 200).";

class ShareTrackingData : public ::testing::Test {
protected:
    void storeSample(double lux) { store.saveTrackingData(DataReader::ambientLight(1), {{"lux", lux}}); }

    void share(bool deleteIfSuccessfull) {
        sharing->share(deleteIfSuccessfull, [this](const Client::Result& result) {
            outcomes.push_back(result ? "success" : result.error().errorDescription().value());
            recordsAtCallback = sharing->count();
        });
    }

    test::TestPlatform platform;
    PersistenceController store{*platform};
    std::shared_ptr<DataSharing> sharing = std::make_shared<DataSharing>(*platform, store, endpoint);
    std::vector<std::string> outcomes;
    std::int64_t recordsAtCallback = -1;
};

}  // namespace

TEST_F(ShareTrackingData, PostsTheWholeStoreAsOneDocument) {
    storeSample(1);
    storeSample(2);
    share(false);
    ASSERT_EQ(platform.backend->requests().size(), 1U);
    const auto request = platform.backend->requests().front();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, endpoint);
    EXPECT_THAT(request.headers, ElementsAre(::testing::Pair("Content-Type", "application/json")));
    EXPECT_EQ(request.timeout, std::chrono::seconds(60));
    EXPECT_EQ(request.body, store.loadTrackingData().value().view());
    EXPECT_THAT(request.body, HasSubstr(R"("lux":2)"));
    EXPECT_THAT(outcomes, IsEmpty()) << "the outcome is not known yet";
}

TEST_F(ShareTrackingData, PostsAnEmptyStoreToo) {
    share(true);
    EXPECT_THAT(platform.backend->requests().front().body, HasSubstr(R"("trackingData":[])"));
    platform.backend->respond(0, UrlResponse{.statusCode = 200}, std::nullopt);
    EXPECT_THAT(outcomes, ElementsAre("success"));
}

TEST_F(ShareTrackingData, DeletesOnlyOnStatus200AndOnRequest) {
    struct Case {
        std::optional<UrlResponse> response;
        std::optional<TransportError> error;
        std::string outcome;
        bool deletes;
    };
    for (const Case& c : {Case{UrlResponse{.statusCode = 201}, {}, notSuccessful, false},
                          Case{UrlResponse{.statusCode = 204}, {}, notSuccessful, false},
                          Case{UrlResponse{.statusCode = 301}, {}, notSuccessful, false},
                          Case{UrlResponse{.statusCode = 500}, {}, notSuccessful, false},
                          Case{UrlResponse{}, {}, notSuccessful, false}, Case{{}, {}, notSuccessful, false},
                          Case{{}, TransportError{"Connection refused"}, "HTTPError: Connection refused", false},
                          Case{UrlResponse{.statusCode = 200}, TransportError{"cut off"}, "HTTPError: cut off", false},
                          Case{UrlResponse{.statusCode = 200}, {}, "success", true}}) {
        SCOPED_TRACE(c.outcome);
        store.deleteAllTrackingData();
        storeSample(1);
        outcomes.clear();
        for (const bool deleteIfSuccessfull : {false, true}) {
            share(deleteIfSuccessfull);
            platform.backend->respond(platform.backend->requests().size() - 1, c.response, c.error);
            EXPECT_EQ(recordsAtCallback, c.deletes && deleteIfSuccessfull ? 0 : 1);
        }
        EXPECT_THAT(outcomes, ElementsAre(c.outcome, c.outcome));
    }
}

TEST_F(ShareTrackingData, DeletesSamplesTakenDuringTheUploadToo) {
    storeSample(1);
    share(true);
    storeSample(2);
    platform.backend->respond(0, UrlResponse{.statusCode = 200}, std::nullopt);
    EXPECT_EQ(recordsAtCallback, 0);
}

TEST_F(ShareTrackingData, WorksWithoutACallback) {
    storeSample(1);
    sharing->share(true, {});
    platform.backend->respond(0, UrlResponse{.statusCode = 200}, std::nullopt);
    EXPECT_EQ(sharing->count(), 0);
}

TEST_F(ShareTrackingData, ReportsRecordsThatCannotBeLoadedBeforeItReturns) {
    platform->setObjectStore(std::make_unique<test::FailingObjectStore>());
    share(true);
    EXPECT_THAT(outcomes, ElementsAre("Cannot load the tracking data."));
    EXPECT_THAT(platform.backend->requests(), IsEmpty());
    EXPECT_EQ(sharing->count(), 0) << "a failed count reads as 0";
    sharing->share(true, {});
}

TEST_F(ShareTrackingData, ReportsAnEndpointThatIsNoUrlBeforeItReturns) {
    const auto broken = std::make_shared<DataSharing>(*platform, store, "https://bad host/tracking");
    std::string outcome;
    broken->share(true, [&](const Client::Result& result) { outcome = result.error().errorDescription().value(); });
    EXPECT_EQ(outcome, "HTTPError: Cannot parse backend url String");
    EXPECT_THAT(platform.backend->requests(), IsEmpty());
    broken->share(true, {});
}

TEST_F(ShareTrackingData, OverlappingUploadsEachPostTheWholeStore) {
    storeSample(1);
    share(true);
    share(true);
    ASSERT_EQ(platform.backend->requests().size(), 2U);
    EXPECT_EQ(platform.backend->requests()[0].body, platform.backend->requests()[1].body);
    platform.backend->respond(1, UrlResponse{.statusCode = 200}, std::nullopt);
    storeSample(2);
    platform.backend->respond(0, UrlResponse{.statusCode = 200}, std::nullopt);
    EXPECT_THAT(outcomes, ElementsAre("success", "success"));
    EXPECT_EQ(sharing->count(), 0);
}

TEST_F(ShareTrackingData, UploadsAndDeletesWheneverTheHostGoesToTheBackground) {
    sharing->uploadInBackground();
    storeSample(1);
    for (std::size_t transition = 0; transition < 2; ++transition) {
        platform->notificationCenter().post(platform::applicationDidEnterBackground);
        ASSERT_EQ(platform.backend->requests().size(), transition + 1);
        platform.backend->respond(transition, UrlResponse{.statusCode = 200}, std::nullopt);
        EXPECT_EQ(sharing->count(), 0);
    }
    sharing.reset();
    platform->notificationCenter().post(platform::applicationDidEnterBackground);
    EXPECT_EQ(platform.backend->requests().size(), 2U) << "nobody is left to upload";
}

TEST_F(ShareTrackingData, AnUploadKeepsWhatItNeedsUntilItsOutcome) {
    storeSample(1);
    share(true);
    sharing.reset();
    sharing = std::make_shared<DataSharing>(*platform, store, endpoint);
    platform.backend->respond(0, UrlResponse{.statusCode = 200}, std::nullopt);
    EXPECT_THAT(outcomes, ElementsAre("success"));
}

TEST(UserId, IsMadeOnceAndThenKept) {
    const test::TestPlatform platform;
    const std::string made = userID(*platform);
    EXPECT_THAT(made, ::testing::MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    EXPECT_EQ(userID(*platform), made);
    EXPECT_EQ(platform.defaults->stringForKey("userID"), made);
}

TEST(UserId, TakesWhateverStringIsStored) {
    const test::TestPlatform platform;
    for (const char* stored : {"participant-7", ""}) {
        platform->setUserDefaults(std::make_unique<testing::MemoryUserDefaults>());
        platform->userDefaults().setStringIfAbsent(stored, "userID");
        EXPECT_EQ(userID(*platform), stored);
    }
}

}  // namespace tarvex
