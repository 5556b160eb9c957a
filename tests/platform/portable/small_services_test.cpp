// The services that need no more than a few lines.

#include "prelude.h"
#include "tarvex/platform/byte_buffer.h"
#include "tarvex/platform/platform.h"

namespace tarvex::platform {

TEST(NotificationCenter, CallsTheObserversOfANameInTheirOrderAlsoWhenTheyChange) {
    NotificationCenter center;
    std::string calls;
    NotificationCenter::ObserverToken first{};
    first = center.addObserverForName("sunset", [&] {
        calls += 'a';
        center.removeObserver(first);
        center.removeObserver(first);
        std::ignore = center.addObserverForName("sunset", [&] { calls += 'c'; });
    });
    std::ignore = center.addObserverForName("sunset", [&] { calls += 'b'; });
    std::ignore = center.addObserverForName("sunrise", [&] { calls += 'x'; });
    center.post("sunset");
    EXPECT_EQ(calls, "ab");
    center.post("sunset");
    EXPECT_EQ(calls, "abbc");
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
    const ByteBuffer taken = std::move(buffer);
    EXPECT_EQ(taken.view(), expected);
    buffer.append("again");
    EXPECT_EQ(buffer.view(), "again");
}

TEST(SceneNode, PlacesNodesInTheWorldThroughTheirParents) {
    const auto parent = std::make_shared<SceneNode>();
    const auto child = std::make_shared<SceneNode>();
    Transform alongX = Transform::identity();
    alongX.columns[12] = 5;
    parent->setTransform({{0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1}});  // a quarter turn, and by (1, 2, 3)
    child->setTransform(alongX);
    EXPECT_EQ(child->worldPosition().x, 5);

    parent->addChildNode(child);
    parent->addChildNode(child);
    const Position turned = child->worldPosition();
    EXPECT_FLOAT_EQ(turned.x, 1);
    EXPECT_FLOAT_EQ(turned.y, 7);
    EXPECT_FLOAT_EQ(turned.z, 3);

    std::make_shared<SceneNode>()->addChildNode(child);
    EXPECT_EQ(child->worldPosition().x, 5) << "the new parent alone counts, and it is gone";
}

TEST(Platform, IsReplacedOnlyBeforeAServiceWasUsed) {
    Platform& before = Platform::current();
    const TemporaryDirectory directory;
    const LinuxOptions options{.dataDirectory = directory.path()};
    auto wanted = Platform::makeLinux(options);
    Platform* installed = wanted.get();
    const double time = wanted->clock().secondsSince1970();  // not the current one yet: does not count
    EXPECT_GT(time, 1.7e9);
    EXPECT_NE(time, std::floor(time)) << "the fraction of a second is kept";
    EXPECT_TRUE(Platform::install(std::move(wanted)));
    EXPECT_EQ(&Platform::current(), installed);
    EXPECT_FALSE(Platform::install(Platform::makeLinux(options))) << "its clock was used";
    EXPECT_EQ(&Platform::current(), installed);
    before.notificationCenter().post("sunset");  // a reference taken before stays good
}

TEST(Platform, KeepsOneThingOfAName) {
    const auto thing = std::make_shared<int>();
    {
        Platform platform;
        EXPECT_TRUE(platform.keep("thing", [&] { return thing; }));
        EXPECT_FALSE(platform.keep("thing", [&] { return thing; }));
        EXPECT_EQ(thing.use_count(), 2);
    }
    EXPECT_EQ(thing.use_count(), 1);
}

}  // namespace tarvex::platform
