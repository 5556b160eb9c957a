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

TEST_F(ClientTest, TakesALightSampleFromTheSensorToTheBackendAndDeletesOnRequest) {
    Client& client = Client::shared();
    platform.defaults->setValueForKey(true, "hasConsentedToTrackAmbientLight");
    client.startTracking({DataReader::ambientLight(1)}, nullptr, {});
    platform.sensor->emit(250, 0.1F, 2, 3, 4);
    platform.timers->advance(1);
    EXPECT_EQ(client.trackingDataCount(), 1);
    for (const auto& [kind, running] : client.trackingInProgress()) {
        EXPECT_TRUE(running);
        client.stopTracking(kind);  // what is iterated is a copy
    }

    bool succeeded = false;
    client.shareTrackingData(true, [&](const Client::Result& result) { succeeded = result.has_value(); });
    EXPECT_THAT(
        platform.backend->requests().front().body,
        HasSubstr(R"("data":{"channel0":0.10000000149011612,"channel1":2,"channel2":3,"channel3":4,"lux":250})"));
    platform.backend->respond(0, platform::UrlResponse{.statusCode = 200}, std::nullopt);
    EXPECT_TRUE(succeeded);
    EXPECT_EQ(client.trackingDataCount(), 0);

    client.startTracking({DataReader::ambientLight(1)}, nullptr, {});
    platform.timers->advance(3);
    EXPECT_EQ(client.trackingDataCount(), 3);
    client.deleteTrackingData();
    EXPECT_EQ(client.trackingDataCount(), 0);
}

using ClientDeathTest = ClientTest;

TEST_F(ClientDeathTest, AThrowingCallbackTerminates) {
    EXPECT_DEATH(Client::shared().startTracking({}, nullptr, [](auto&&...) { throw std::runtime_error("host"); }),
                 "terminate");
}

}  // namespace tarvex
