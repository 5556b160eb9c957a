#include "tarvex/client.h"

#include <type_traits>

#include "prelude.h"
#include "test_platform.h"

namespace tarvex {

namespace {

class ClientTest : public ::testing::Test {
protected:
    test::TestPlatform platform;
};

}  // namespace

static_assert(!std::is_copy_constructible_v<Client> && !std::is_move_constructible_v<Client>);

TEST_F(ClientTest, IsCreatedOnceByWhicheverThreadComesFirst) {
    std::array<std::future<Client*>, 8> seen;
    for (auto& client : seen)
        client = std::async(std::launch::async, [] { return &Client::shared(); });
    for (auto& client : seen)
        EXPECT_EQ(client.get(), &Client::shared());
}

TEST_F(ClientTest, FirstUseStoresAUserIdentifierAndListensForTheBackground) {
    Client::shared();
    EXPECT_TRUE(platform.defaults->stringForKey("userID").has_value());
    platform->notificationCenter().post(platform::applicationDidEnterBackground);
    ASSERT_EQ(platform.backend->requests().size(), 1U);
    EXPECT_THAT(platform.backend->requests().front().url, ::testing::EndsWith("/tracking"));
}

TEST_F(ClientTest, ReadsConsentAfreshForEachKind) {
    const Client& client = Client::shared();
    EXPECT_FALSE(client.hasConsentedToTracking(DataReader::distance(7)));
    platform.defaults->setValueForKey(true, "hasConsentedToTrackDistance");
    EXPECT_TRUE(client.hasConsentedToTracking(DataReader::distance(7)));
    EXPECT_TRUE(client.hasConsentedToTracking(DataReader::distance(std::nullopt)));
    EXPECT_FALSE(client.hasConsentedToTracking(DataReader::ambientLight(7)));
}

TEST_F(ClientTest, DeletesWhatWasSharedAndOnRequest) {
    Client& client = Client::shared();
    platform.defaults->setValueForKey(true, "hasConsentedToTrackAmbientLight");
    client.startTracking({DataReader::ambientLight(1)}, nullptr, {});
    platform.timers->advance(2);
    bool succeeded = false;
    client.shareTrackingData(true, [&](const Client::Result& result) { succeeded = result.has_value(); });
    platform.backend->respond(0, platform::UrlResponse{.statusCode = 200}, std::nullopt);
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(client.trackingDataCount(), 0);
    platform.timers->advance(1);
    EXPECT_EQ(client.trackingDataCount(), 1);
    client.deleteTrackingData();
    EXPECT_EQ(client.trackingDataCount(), 0);
}

using ClientDeathTest = ClientTest;

TEST_F(ClientDeathTest, AThrowingCallbackTerminates) {
    EXPECT_DEATH(Client::shared().startTracking({}, nullptr, [](auto&&...) { throw std::runtime_error("host"); }),
                 "terminate");
}

}  // namespace tarvex
