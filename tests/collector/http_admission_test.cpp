#include "collector/http/admission.h"
#include "collector/http/body_reception.h"
#include "prelude.h"

namespace tarvex::collector {

TEST(Admission, CountsThoseOfOneAddressButLoopback) {
    Admission admission({.connections = 6, .connectionsOfAnAddress = 2});
    const Peer far = peerOf("192.0.2.1");
    EXPECT_TRUE(admission.enter(far));
    EXPECT_TRUE(admission.enter(peerOf("::ffff:192.0.2.1")));
    EXPECT_FALSE(admission.enter(far));
    EXPECT_TRUE(admission.enter(peerOf("192.0.2.2")));
    for (const auto* local : {"127.0.0.1", "127.0.0.1", "::ffff:127.0.0.1"})
        EXPECT_TRUE(admission.enter(peerOf(local))) << local;
    EXPECT_FALSE(admission.enter(peerOf("127.0.0.1"))) << "of all together, there are enough";
    admission.leave(far);
    EXPECT_TRUE(admission.enter(far));

    Admission another({.connections = 6, .connectionsOfAnAddress = 1});
    EXPECT_TRUE(another.enter(peerOf("2001:db8:0:1::1")));
    EXPECT_FALSE(another.enter(peerOf("2001:db8:0:1:ffff::2"))) << "the same network";
    EXPECT_TRUE(another.enter(peerOf("2001:db8:0:2::1")));
    EXPECT_TRUE(peerOf("::1").isLoopback);
    EXPECT_EQ(peerOf("fe80::1%eth0").network, "fe80::");
    EXPECT_EQ(peerOf("::ffff:192.0.2.1").address, "192.0.2.1");
}

TEST(LeastRate, HoldsInEverySpanOfItsWindow) {
    const auto begin = LeastRate::Clock::now();
    LeastRate rate(1'000, 30s, begin);
    EXPECT_EQ(rate.deadline(), begin + 30s);
    rate.add(29'999, begin + 10s);
    EXPECT_EQ(rate.deadline(), begin + 30s);
    rate.add(1, begin + 20s);
    EXPECT_EQ(rate.deadline(), begin + 40s) << "enough has come since the tenth second";
    rate.add(90'000, begin + 29s);
    EXPECT_EQ(rate.deadline(), begin + 59s) << "so much at once is good for one window, not for three";
    for (int second = 30; second < 100; ++second) {
        EXPECT_GT(rate.deadline(), begin + std::chrono::seconds(second));
        rate.add(1'100, begin + std::chrono::seconds(second));
    }
    for (int second = 100; rate.deadline() > begin + std::chrono::seconds(second); ++second) {
        ASSERT_LT(second, 108);
        rate.add(500, begin + std::chrono::seconds(second));
    }
}

}  // namespace tarvex::collector
