#include "tarvex/client.h"

#include <type_traits>

#include "test_platform.h"

namespace tarvex {
namespace {

static_assert(!std::is_copy_constructible_v<Client> && !std::is_move_constructible_v<Client>);

TEST(ClientTest, IsCreatedOnceByWhicheverThreadComesFirst) {
    const test::TestPlatform platform;
    std::array<std::future<Client*>, 8> seen;
    for (auto& client : seen)
        client = std::async(std::launch::async, [] { return &Client::shared(); });
    for (auto& client : seen)
        EXPECT_EQ(client.get(), &Client::shared());
}

TEST(ClientTest, StoresAUserIdentifierAndUploadsAndDeletesInTheBackgroundAndOnRequest) {
    const test::TestPlatform platform;
    Client& client = Client::shared();
    EXPECT_TRUE(platform.defaults->stringForKey("userID").has_value());
    platform.defaults->setValueForKey(true, "hasConsentedToTrackAmbientLight");
    client.startTracking({DataReader::ambientLight(1)}, nullptr, {});
    for (const std::size_t upload : {0U, 1U, 2U}) {
        platform.timers->advance(2);
        EXPECT_EQ(client.trackingDataCount(), 2);
        bool succeeded = upload < 2;
        if (succeeded)
            platform->notificationCenter().post(platform::applicationDidEnterBackground);
        else
            client.shareTrackingData(true, [&](const Client::Result& result) { succeeded = result.has_value(); });
        ASSERT_EQ(platform.backend->requests().size(), upload + 1);
        EXPECT_THAT(platform.backend->requests()[upload].url, EndsWith("/tracking"));
        platform.backend->respond(upload, platform::UrlResponse{.statusCode = 200}, std::nullopt);
        EXPECT_TRUE(succeeded);
        EXPECT_EQ(client.trackingDataCount(), 0);
    }
    platform.timers->advance(1);
    client.deleteTrackingData();
    EXPECT_EQ(client.trackingDataCount(), 0);
}

TEST(ClientDeathTest, AThrowingCallbackOrACallOnAnotherThreadTerminates) {
    const test::TestPlatform platform;
    Client& client = Client::shared();
    EXPECT_DEATH(client.startTracking({}, nullptr, [](auto&&...) { throw std::runtime_error("host"); }), "terminate");
    client.informationView({}, {}, {}, {}, {});
    EXPECT_DEBUG_DEATH(std::jthread([&] { client.shareTrackingData(false, {}); }).join(), "thread-bound");
    EXPECT_DEBUG_DEATH(std::jthread([&] { client.informationViewController({}, {}, {}, {}, {}); }).join(),
                       "thread-bound");
}

}  // namespace
}  // namespace tarvex
