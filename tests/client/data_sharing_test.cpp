#include "client/data_sharing.h"

#include "client/user_identifier.h"
#include "prelude.h"
#include "scripted_object_store.h"
#include "test_platform.h"

namespace tarvex {

namespace {

using platform::TransportError;
using platform::UrlResponse;

constexpr const char* endpoint = "https://backend.example/tracking";
constexpr const char* notSuccessful = "HTTPError: The request was not successfull (statusCode != 200).";

class ShareTrackingData : public ::testing::Test {
protected:
    void storeSample(double lux) { store.saveTrackingData(DataReader::ambientLight(1), {{"lux", lux}}); }

    void respond(std::size_t request, std::optional<UrlResponse> response = UrlResponse{.statusCode = 200},
                 std::optional<TransportError> error = {}) {
        platform.backend->respond(request, response, error);
    }

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
    ASSERT_THAT(platform.backend->requests(), SizeIs(1));
    const auto request = platform.backend->requests().front();
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, endpoint);
    EXPECT_THAT(request.headers, ElementsAre(Pair("Content-Type", "application/json")));
    EXPECT_EQ(request.timeout, 60s);
    EXPECT_EQ(request.body, store.loadTrackingData().value().view());
    EXPECT_THAT(request.body, HasSubstr(R"("lux":2)"));
    EXPECT_THAT(outcomes, IsEmpty()) << "the outcome is not known yet";
}

TEST_F(ShareTrackingData, DeletesOnlyOnStatus200AndOnRequest) {
    using Case = std::tuple<std::optional<UrlResponse>, std::optional<TransportError>, std::string>;
    const auto status = [](int code) { return UrlResponse{.statusCode = code}; };
    for (const auto& [response, error, outcome] :
         {Case{status(201), {}, notSuccessful}, Case{status(204), {}, notSuccessful},
          Case{status(301), {}, notSuccessful}, Case{status(500), {}, notSuccessful},
          Case{UrlResponse{}, {}, notSuccessful}, Case{{}, {}, notSuccessful},
          Case{{}, TransportError{"Connection refused"}, "HTTPError: Connection refused"},
          Case{status(200), TransportError{"cut off"}, "HTTPError: cut off"}, Case{status(200), {}, "success"}}) {
        SCOPED_TRACE(outcome);
        store.deleteAllTrackingData();
        storeSample(1);
        outcomes.clear();
        for (const bool deleteIfSuccessfull : {false, true}) {
            share(deleteIfSuccessfull);
            respond(platform.backend->requests().size() - 1, response, error);
            EXPECT_EQ(recordsAtCallback, outcome == "success" && deleteIfSuccessfull ? 0 : 1);
        }
        EXPECT_THAT(outcomes, ElementsAre(outcome, outcome));
    }
}

TEST_F(ShareTrackingData, OverlappingUploadsEachPostTheWholeStoreAndDeleteWhatIsThereThen) {
    share(true);
    EXPECT_THAT(platform.backend->requests().front().body, HasSubstr(R"("trackingData":[])")) << "empty, but posted";
    storeSample(1);
    share(true);
    share(true);
    EXPECT_EQ(platform.backend->requests()[1].body, platform.backend->requests()[2].body);
    respond(1);
    EXPECT_EQ(recordsAtCallback, 0);
    storeSample(2);
    sharing = std::make_shared<DataSharing>(*platform, store, endpoint);  // an upload keeps what it needs
    respond(0);
    EXPECT_EQ(recordsAtCallback, 0) << "samples taken during an upload go too";
    EXPECT_THAT(outcomes, ElementsAre("success", "success"));
}

TEST_F(ShareTrackingData, ReportsWhatCannotBeSentBeforeItReturns) {
    sharing = std::make_shared<DataSharing>(*platform, store, "https://bad host/tracking");
    share(true);
    sharing->share(true, {});
    platform->setObjectStore(std::make_unique<test::ScriptedObjectStore>());
    PersistenceController failing(*platform);
    sharing = std::make_shared<DataSharing>(*platform, failing, endpoint);
    share(true);
    sharing->share(true, {});
    EXPECT_THAT(outcomes, ElementsAre("HTTPError: Cannot parse backend url String", "Cannot load the tracking data."));
    EXPECT_THAT(platform.backend->requests(), IsEmpty());
    EXPECT_EQ(recordsAtCallback, 0) << "a failed count reads as 0";
}

TEST_F(ShareTrackingData, ReportsThatThereIsNoMemoryForTheDocument) {
    const auto runOut = [] { throw std::bad_alloc(); };
    for (const test::ScriptedObjectStore::Script& script :
         {test::ScriptedObjectStore::Script{.fetch = [] {}, .fetchSizeBound = std::size_t{1} << 62U},
          test::ScriptedObjectStore::Script{.fetch = runOut}}) {
        platform->setObjectStore(std::make_unique<test::ScriptedObjectStore>(script));
        PersistenceController scripted(*platform);
        sharing = std::make_shared<DataSharing>(*platform, scripted, endpoint);
        share(true);
    }
    EXPECT_THAT(outcomes, ElementsAre("Cannot load the tracking data.", "Cannot load the tracking data."));
    EXPECT_THAT(platform.backend->requests(), IsEmpty());
}

TEST_F(ShareTrackingData, UploadsAndDeletesWheneverTheHostGoesToTheBackground) {
    sharing->uploadInBackground();
    storeSample(1);
    for (std::size_t transition = 0; transition < 2; ++transition) {
        platform->notificationCenter().post(platform::applicationDidEnterBackground);
        ASSERT_THAT(platform.backend->requests(), SizeIs(transition + 1));
        respond(transition);
        EXPECT_EQ(sharing->count(), 0);
    }
    sharing.reset();
    platform->notificationCenter().post(platform::applicationDidEnterBackground);
    EXPECT_THAT(platform.backend->requests(), SizeIs(2)) << "nobody is left to upload";
}

TEST(UserId, IsMadeOnceUnlessAnyStringIsStored) {
    const test::TestPlatform platform;
    const std::string made = userID(*platform);
    EXPECT_THAT(made, MatchesRegex("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"));
    EXPECT_EQ(userID(*platform), made);
    EXPECT_EQ(platform.defaults->stringForKey("userID"), made);
    for (const char* stored : {"participant-7", ""}) {
        platform->setUserDefaults(std::make_unique<testing::MemoryUserDefaults>());
        platform->userDefaults().setValueForKey(stored, "userID");
        EXPECT_EQ(userID(*platform), stored);
    }
}

}  // namespace tarvex
