// The services that need no more than a few lines.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <vector>

#include "platform/byte_buffer.h"
#include "platform/linux/glm_scene_graph.h"
#include "platform/linux/kernel_uuid_generator.h"
#include "platform/linux/local_notification_center.h"
#include "platform/platform.h"
#include "tarvex/url.h"
#include "temporary_directory.h"

namespace tarvex::platform {

TEST(LocalNotificationCenter, CallsTheObserversOfANameInTheirOrder) {
    LocalNotificationCenter center;
    std::vector<int> calls;
    const auto first = center.addObserverForName("sunset", [&] { calls.push_back(1); });
    std::ignore = center.addObserverForName("sunset", [&] { calls.push_back(2); });
    std::ignore = center.addObserverForName("sunrise", [&] { calls.push_back(3); });
    center.post("sunset");
    center.removeObserver(first);
    center.removeObserver(first);
    center.post("sunset");
    EXPECT_THAT(calls, ::testing::ElementsAre(1, 2, 2));
}

TEST(LocalNotificationCenter, LetsAnObserverRemoveItselfAndAddOthers) {
    LocalNotificationCenter center;
    int calls = 0;
    NotificationCenter::ObserverToken token{};
    token = center.addObserverForName("once", [&] {
        ++calls;
        center.removeObserver(token);
        std::ignore = center.addObserverForName("once", [&] { calls += 10; });
    });
    center.post("once");
    EXPECT_EQ(calls, 1);
    center.post("once");
    EXPECT_EQ(calls, 11);
}

TEST(KernelUuidGenerator, MakesDistinctRandomUuids) {
    KernelUuidGenerator generator;
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        const std::string text = generator.makeUuid().uuidString();
        EXPECT_THAT(text,
                    ::testing::MatchesRegex("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}"));
        EXPECT_TRUE(seen.insert(text).second);
    }
}

TEST(Uuid, IsWrittenInUpperCaseInFiveGroups) {
    const Uuid uuid{{0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
    EXPECT_EQ(uuid.uuidString(), "00112233-4455-6677-8899-AABBCCDDEEFF");
}

TEST(Url, TakesAbsoluteUrlsOnly) {
    for (const char* text :
         {"https://backend.example/tracking", "mailto:study@example.org", "https://[::1]:8443/a?b#c"})
        EXPECT_EQ(Url::parse(text).value().string(), text);
    for (const std::string_view text :
         {"", "tracking", "/tracking", "//host/path", "https://a b/", "1http://a", "https://host:port/"})
        EXPECT_FALSE(Url::parse(text).has_value()) << text;
    EXPECT_FALSE(Url::parse(std::string_view("https://a/\0b", 12)).has_value());
}

TEST(ByteBuffer, KeepsItsContentsWhileItGrows) {
    ByteBuffer buffer;
    std::string expected;
    for (int i = 0; i < 5000; ++i) {
        buffer.append(std::to_string(i));
        expected += std::to_string(i);
    }
    EXPECT_EQ(buffer.view(), expected);
    buffer.reserve(std::size_t{64} << 20U);
    EXPECT_EQ(buffer.view(), expected);
    EXPECT_THROW(buffer.reserve(std::size_t{1} << 62U), std::bad_alloc);
    EXPECT_EQ(buffer.view(), expected);
}

TEST(GlmSceneGraph, PlacesNodesInTheWorldThroughTheirParents) {
    GlmSceneGraph graph;
    const auto parent = graph.makeReferenceNode();
    const auto other = graph.makeNode();
    const auto child = graph.makeNode();
    Transform quarterTurnAboutZ{{0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1}};  // and moved by (1, 2, 3)
    Transform alongX = Transform::identity();
    alongX.columns[12] = 5;
    parent->setTransform(quarterTurnAboutZ);
    child->setTransform(alongX);
    EXPECT_EQ(child->worldPosition().x, 5);

    parent->addChildNode(child);
    parent->addChildNode(child);
    const Position turned = child->worldPosition();
    EXPECT_FLOAT_EQ(turned.x, 1);
    EXPECT_FLOAT_EQ(turned.y, 7);
    EXPECT_FLOAT_EQ(turned.z, 3);

    other->addChildNode(child);
    EXPECT_EQ(child->worldPosition().x, 5) << "the new parent alone counts";
}

TEST(GlmSceneGraph, OutlivesAParentThatIsGone) {
    GlmSceneGraph graph;
    const auto child = graph.makeNode();
    graph.makeNode()->addChildNode(child);
    EXPECT_EQ(child->worldPosition().x, 0);
}

TEST(Platform, IsInstalledOnlyBeforeAServiceWasUsed) {
    const test::TemporaryDirectory directory;
    const LinuxOptions options{.dataDirectory = directory.path()};
    auto first = Platform::makeLinux(options);
    first->clock();  // not the current one yet: does not count
    Platform* installed = first.get();
    EXPECT_TRUE(Platform::install(std::move(first)));
    EXPECT_EQ(&Platform::current(), installed);
    EXPECT_FALSE(Platform::install(Platform::makeLinux(options))) << "its clock was used";
    EXPECT_EQ(&Platform::current(), installed);
}

TEST(Platform, ReplacesACurrentOneThatNobodyUsed) {
    const test::TemporaryDirectory directory;
    Platform& before = Platform::current();
    auto wanted = Platform::makeLinux({.dataDirectory = directory.path()});
    Platform* expected = wanted.get();
    EXPECT_TRUE(Platform::install(std::move(wanted)));
    EXPECT_EQ(&Platform::current(), expected);
    EXPECT_GT(before.clock().secondsSince1970(), 1.7e9) << "a reference taken before stays good";
}

TEST(Platform, KnowsTheMachineAndTheTime) {
    const auto platform = Platform::makeLinux();
    EXPECT_THAT(platform->systemInfo().machine(), ::testing::MatchesRegex("[ -~]+"));
    const double time = platform->clock().secondsSince1970();
    EXPECT_NE(time, std::floor(time)) << "the fraction of a second is kept";
}

}  // namespace tarvex::platform
