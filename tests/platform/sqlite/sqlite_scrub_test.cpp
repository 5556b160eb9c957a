#include <unistd.h>

#include "child_process.h"
#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using test::leavesTrace;
using test::range;
using test::SampleStore;

class Scrub : public test::SampleStoreTest {
protected:
    void SetUp() override {
        SampleStoreTest::SetUp();
        ASSERT_TRUE(store.addAll(hundred));
    }

    /// What the test would be worth nothing without: it can tell that the scrub is still owed.
    void expectTrace(const std::vector<int>& numbers) const { EXPECT_TRUE(leavesTrace(directory.path(), numbers)); }
    void expectNoTrace(const std::vector<int>& numbers) const { EXPECT_FALSE(leavesTrace(directory.path(), numbers)); }

    const std::vector<int> hundred = range(0, 100);
    test::OtherProgram other{directory.path() / SampleStore::fileName};
};

TEST_F(Scrub, LeavesNoByteOfADeletedSampleInAnyFile) {
    for (int count : {10, 1, 3000}) {  // in a few pages, in a leaf, and more than the log holds without a checkpoint
        SCOPED_TRACE(count);
        const auto deleted = range(10'000 * count, count);
        ASSERT_TRUE(store.addAll(deleted));
        ASSERT_TRUE(store.removeAll());
        expectTrace(deleted);
        store.context().scrub();
        expectNoTrace(deleted);
        EXPECT_EQ(store.count(), 0);
    }
    EXPECT_EQ(test::integrity(directory.path()), "ok");
}

TEST_F(Scrub, SparesWhatWasStoredAfterTheDeletion) {
    ASSERT_TRUE(store.removeAll());
    ASSERT_TRUE(store.add(1000));
    store.insert(1001);
    store.context().scrub();
    expectNoTrace(hundred);
    EXPECT_THAT(*store.numbers(), ElementsAre(1000, 1001));
}

TEST_F(Scrub, NeedsNoTemporaryFileForAnyNumberOfSamples) {
    ASSERT_TRUE(store.removeAll());
    // More than SQLite's cache holds; the rest would go to a temporary file, which the tests' file system refuses.
    ASSERT_TRUE(store.addAll(range(1000, 5000)));
    store.context().scrub();
    expectNoTrace(hundred);
}

TEST_F(Scrub, CostsNothingWhenItIsNotOwed) {
    ASSERT_TRUE(store.removeAll());
    store.context().scrub();
    ASSERT_TRUE(store.add(1000));
    const int before = vfs.syncs();
    ASSERT_TRUE(store.add(1001));
    EXPECT_EQ(vfs.syncs() - before, 1) << "of the sample itself";

    ASSERT_TRUE(store.removeAll());
    store.context().scrub();
    const int emptied = vfs.syncs();
    ASSERT_TRUE(store.removeAll()) << "of nothing";
    store.context().scrub();
    EXPECT_EQ(vfs.syncs(), emptied);
}

TEST_F(Scrub, WaitsForAReaderAndIsDoneByTheNextOperationAfterIt) {
    int first = 0;
    for (const auto& [what, operation] : std::map<std::string, std::function<bool(SampleStore&)>>{
             {"count", [](SampleStore& s) { return s.count().has_value(); }},
             {"fetch", [](SampleStore& s) { return s.numbers().has_value(); }},
             {"save", [](SampleStore& s) { return s.add(100'000).has_value(); }},
             {"scrub", [](SampleStore& s) { return s.context().scrub(), true; }}}) {
        SCOPED_TRACE(what);
        const auto deleted = range(first += 1000, 100);
        ASSERT_TRUE(store.addAll(deleted));
        other.beginToRead();
        ASSERT_TRUE(store.removeAll());
        store.context().scrub();
        ASSERT_TRUE(operation(store));
        expectTrace(deleted);
        other.end();
        ASSERT_TRUE(operation(store));
        expectNoTrace(deleted);
    }
}

TEST_F(Scrub, RebuildsThePagesOnlyOnceWhileAReaderStays) {
    other.beginToRead();
    ASSERT_TRUE(store.removeAll());
    store.context().scrub();
    ASSERT_TRUE(store.add(1000));
    const int before = vfs.writes();
    for (int number = 1001; number <= 1010; ++number)
        ASSERT_TRUE(store.add(number));
    // A sample is a frame or two of the log; a rebuilt store would be all pages each time.
    EXPECT_LE(vfs.writes() - before, 10 * 4);
    other.end();
    ASSERT_TRUE(store.add(1011));
    expectNoTrace(hundred);
}

TEST_F(Scrub, CoversADeletionMadeWhileAnEarlierOneIsStillOwed) {
    other.beginToRead();
    ASSERT_TRUE(store.removeAll());
    store.context().scrub();
    ASSERT_TRUE(store.addAll(range(100, 100)));
    ASSERT_TRUE(store.removeAll());
    other.end();
    store.context().scrub();
    expectNoTrace(range(0, 200));
}

TEST_F(Scrub, WaitsForAWriterToo) {
    ASSERT_TRUE(store.removeAll());
    other.beginToWrite();
    const int before = vfs.locks();
    store.context().scrub();
    // Before each try it pauses for longer, up to 16 ms: 50 ms hold seven tries, an operation's second would hold
    // sixty.
    EXPECT_THAT(vfs.locks() - before, ::testing::AllOf(::testing::Gt(7), ::testing::Lt(30)));
    expectTrace(hundred);
    other.end();
    ASSERT_TRUE(store.count());
    expectNoTrace(hundred);
}

TEST_F(Scrub, IsDoneAtTheNextOpening) {
    ASSERT_TRUE(store.removeAll());
    SampleStore next(directory.path());
    ASSERT_TRUE(next.open());
    expectNoTrace(hundred);
}

TEST(ScrubOfOtherProcess, IsDoneWhenThatOneEndedBefore) {
    const TemporaryDirectory directory;
    const auto deleted = range(0, 100);
    const auto opened = directory.path() / "opened";
    test::ChildProcess child([&](int) -> int {
        while (!std::filesystem::exists(opened))
            usleep(1000);
        SampleStore store(directory.path());
        const bool done = store.open() && store.addAll(deleted) && store.removeAll();
        _exit(done ? 0 : 1);  // as a killed process: nothing is closed
    });
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    std::filesystem::create_directory(opened);
    ASSERT_EQ(child.wait(), 0);
    std::filesystem::remove(opened);
    EXPECT_TRUE(leavesTrace(directory.path(), deleted)) << "or this test cannot tell";
    ASSERT_TRUE(store.count());
    EXPECT_FALSE(leavesTrace(directory.path(), deleted));
}

}  // namespace
}  // namespace tarvex::platform
