#include "client/data_sharing.h"

#include "client/sender.h"
#include "platform/sqlite/sample_store.h"
#include "platform/sqlite/sqlite_user_defaults.h"
#include "scripted_object_store.h"
#include "test_platform.h"

namespace tarvex {

namespace {

using platform::TransportError;
using platform::UrlResponse;

constexpr const char* endpoint = "https://backend.example/tracking";
constexpr const char* cannotLoad = "Cannot load the tracking data.";
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
            recordsAtCallback = store.countTrackingData();
        });
    }

    test::TestPlatform platform;
    PersistenceController store{*platform};
    std::shared_ptr<DataSharing> sharing = std::make_shared<DataSharing>(*platform, store, endpoint);
    std::vector<std::string> outcomes;
    std::optional<std::int64_t> recordsAtCallback;
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
    EXPECT_EQ(request.body, store.loadTrackingData([&] { return sender(*platform); }).value().view());
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
    sharing->uploadInBackground();
    sharing.reset();
    respond(0);
    EXPECT_EQ(recordsAtCallback, 0) << "samples taken during an upload go too, and it keeps what it needs for that";
    EXPECT_THAT(outcomes, ElementsAre("success", "success"));
    respond(2);
    platform->notificationCenter().post(platform::applicationDidEnterBackground);
    EXPECT_THAT(platform.backend->requests(), SizeIs(3)) << "nobody is left to upload";
}

TEST_F(ShareTrackingData, ReportsWhatCannotBeSentBeforeItReturns) {
    using Script = test::ScriptedObjectStore::Script;
    sharing = std::make_shared<DataSharing>(*platform, store, "https://bad host/tracking");
    share(true);
    for (const Script& failure : {Script{}, Script{.fetch = [] {}, .fetchSizeBound = std::size_t{1} << 62U},
                                  Script{.fetch = [] { throw std::bad_alloc(); }}}) {
        platform->setObjectStore(std::make_unique<test::ScriptedObjectStore>(failure));
        PersistenceController failing(*platform);
        sharing = std::make_shared<DataSharing>(*platform, failing, endpoint);
        share(true);
        sharing->share(true, {});
        EXPECT_EQ(outcomes.back(), cannotLoad);
    }
    EXPECT_EQ(outcomes.front(), "HTTPError: Cannot parse backend url String");
    EXPECT_THAT(platform.backend->requests(), IsEmpty());
}

TEST_F(ShareTrackingData, NamesOnlyAnIdentifierThatIsDurable) {
    using Damage = std::tuple<std::string, bool, std::function<std::shared_ptr<void>(test::FaultyVfs&, std::string)>>;
    const auto lock = [](const char* sql) {
        return [sql](test::FaultyVfs&, const std::string& file) {
            auto other = std::make_shared<test::OtherProgram>(file);
            other->run(sql);
            return other;
        };
    };
    const auto fail = [](test::FileCall call, int code) {
        return [=](test::FaultyVfs& vfs, const std::string&) { return vfs.failEvery(call, code), nullptr; };
    };
    storeSample(1);
    for (const auto& [name, readable, cause] :
         {Damage{"another program writes", true, lock("BEGIN IMMEDIATE")},
          Damage{"another program locks it", false,
                 lock("PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; CREATE TABLE held(x)")},
          Damage{"full disk", true, fail(test::FileCall::write, SQLITE_FULL)},
          Damage{"forbidden", false, fail(test::FileCall::open, SQLITE_CANTOPEN)},
          Damage{"damaged", false, [](test::FaultyVfs&, const std::string& file) {
                     auto mend = [file, kept = contentsOf(file)](void*) { writeFile(file, kept); };
                     writeFile(file, std::string(10'000, 'g'));
                     return std::shared_ptr<void>(nullptr, std::move(mend));
                 }}}) {
        for (const auto& stored : std::vector<std::optional<std::string>>{std::nullopt, "participant 7", ""}) {
            SCOPED_TRACE(name + stored.value_or(", nothing stored"));
            const TemporaryDirectory directory;
            test::FaultyVfs vfs;
            const auto open = [&] {
                return std::make_unique<platform::SqliteUserDefaults>([&] { return directory.path(); }, vfs.name());
            };
            open()->setValueForKey(stored.value_or("none yet"), stored ? "userID" : "another");
            auto damage = cause(vfs, directory.path() / "UserDefaults.sqlite");
            platform->setUserDefaults(open());
            const auto start = std::chrono::steady_clock::now();
            for (int i = 0; i < 30 && !(stored && readable); ++i) {
                share(true);
                EXPECT_THAT(std::exchange(outcomes, {}), ElementsAre(cannotLoad));
                EXPECT_EQ(recordsAtCallback, 1);
            }
            EXPECT_EQ(userID(*platform), readable ? stored : std::nullopt);
            EXPECT_LT(std::chrono::steady_clock::now() - start, 2s) << "only the first waits";
            EXPECT_THAT(platform.backend->requests(), IsEmpty());
            damage.reset();
            vfs.heal();
            const std::string id = test::documentOf(store).userId;
            EXPECT_THAT(id, MatchesRegex(stored.value_or("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}")));
            EXPECT_EQ(open()->durableStringForKey("userID"), id) << "in the next process";
            platform->setUserDefaults(std::make_unique<testing::MemoryUserDefaults>());
        }
    }
}

}  // namespace tarvex
