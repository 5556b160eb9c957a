#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using test::FileCall;
using test::range;
using test::SampleStore;

class Scrub : public test::SampleStoreTest {
protected:
    void SetUp() override {
        SampleStoreTest::SetUp();
        ASSERT_TRUE(store.addAll(hundred));
    }

    bool leavesTrace(const std::vector<int>& numbers) const { return test::leavesTrace(directory.path(), numbers); }

    const std::vector<int> hundred = range(0, 100);
    test::OtherProgram other{file};
};

TEST_F(Scrub, LeavesNoByteOfADeletedSampleInAnyFileAndSparesLaterOnes) {
    // In a few pages; in a leaf; more than the log holds without a checkpoint. Then more than SQLite's cache holds: the
    // rest would go to a temporary file, which the tests' file system refuses.
    for (const auto& [count, later] : {std::pair(10, 0), std::pair(1, 1), std::pair(3000, 5000)}) {
        SCOPED_TRACE(count);
        const auto deleted = range(10'000 * count, count);
        auto kept = range(100'000'000 + 10'000 * count, later);
        ASSERT_TRUE(store.addAll(deleted) && store.removeAll());
        EXPECT_TRUE(leavesTrace(deleted)) << "or this test cannot tell";
        ASSERT_TRUE(later == 0 || store.addAll(kept));
        kept.push_back(300'000'000 + count);
        store.insert(kept.back());
        store.context().scrub();
        EXPECT_FALSE(leavesTrace(deleted));
        EXPECT_EQ(store.numbers(), kept);
        ASSERT_TRUE(store.context().save() && store.removeAll());
    }
    EXPECT_EQ(test::integrity(directory.path()), "ok");
}

TEST_F(Scrub, CostsACommitNoSyncBesideItsOwnWhenItIsNotOwed) {
    ASSERT_TRUE(store.removeAll());
    store.context().scrub();
    ASSERT_TRUE(store.add(1000));
    const int before = vfs.count(FileCall::sync);
    for (const int first : {1001, 1101, 1201})
        ASSERT_TRUE(store.addAll(range(first, 100)));
    ASSERT_TRUE(store.context().save()) << "nothing is pending";
    EXPECT_EQ(vfs.count(FileCall::sync) - before, 3);
    ASSERT_TRUE(store.removeAll());
    store.context().scrub();
    const int emptied = vfs.count(FileCall::sync);
    ASSERT_TRUE(store.removeAll()) << "of nothing";
    store.context().scrub();
    EXPECT_EQ(vfs.count(FileCall::sync), emptied);
}

TEST_F(Scrub, WaitsForAReaderAndIsDoneByTheNextOperationOfAnyConnectionAfterIt) {
    SampleStore another(directory.path());
    ASSERT_TRUE(another.open());
    int first = 0;
    for (const auto& [name, operation] : std::map<std::string, std::function<bool(SampleStore&)>>{
             {"count", [](SampleStore& s) { return s.count().has_value(); }},
             {"fetch", [](SampleStore& s) { return s.numbers().has_value(); }},
             {"save", [](SampleStore& s) { return s.add(100'000).has_value(); }},
             {"scrub", [](SampleStore& s) { return s.context().scrub(), true; }},
             {"open", [&](SampleStore&) { return SampleStore(directory.path()).open().has_value(); }}}) {
        SCOPED_TRACE(name);
        const auto deleted = range(first += 1000, 100);
        ASSERT_TRUE(store.addAll(deleted));
        other.beginToRead();
        ASSERT_TRUE(another.removeAll());
        store.context().scrub();
        ASSERT_TRUE(operation(store));
        EXPECT_TRUE(leavesTrace(deleted));
        other.end();
        ASSERT_TRUE(operation(store));
        EXPECT_FALSE(leavesTrace(deleted));
    }
}

TEST_F(Scrub, RebuildsThePagesOnceForEachDeletionWhileAReaderStays) {
    other.beginToRead();
    for (const int first : {1000, 2000}) {
        ASSERT_TRUE(store.removeAll());
        store.context().scrub();
        ASSERT_TRUE(store.add(first));
        const int before = vfs.count(FileCall::write);
        for (int number = first + 1; number <= first + 10; ++number)
            ASSERT_TRUE(store.add(number));
        // A sample is a frame or two of the log; a rebuilt store would be all pages each time.
        EXPECT_LE(vfs.count(FileCall::write) - before, 10 * 4);
    }
    other.end();
    ASSERT_TRUE(store.add(1011));
    EXPECT_FALSE(leavesTrace(hundred) || leavesTrace(range(1000, 11)));
}

TEST_F(Scrub, WaitsForAWriterFor50Milliseconds) {
    ASSERT_TRUE(store.removeAll());
    other.beginToWrite();
    const int before = vfs.count(FileCall::sharedLock);
    store.context().scrub();
    // Before each try it pauses for longer, up to 16 ms: 50 ms hold seven tries, an operation's second sixty.
    EXPECT_THAT(vfs.count(FileCall::sharedLock) - before, ::testing::AllOf(::testing::Gt(7), ::testing::Lt(30)));
    EXPECT_TRUE(leavesTrace(hundred));
    other.end();
    ASSERT_TRUE(store.count());
    EXPECT_FALSE(leavesTrace(hundred));
}

}  // namespace
}  // namespace tarvex::platform
