#include <gmock/gmock.h>
#include <sqlite3.h>
#include <unistd.h>

#include <functional>
#include <ranges>
#include <vector>

#include "child_process.h"
#include "faulty_vfs.h"
#include "sample_store.h"
#include "temporary_directory.h"

namespace tarvex::platform {
namespace {

using test::leavesTrace;
using test::SampleStore;
using test::TemporaryDirectory;
using testing::ElementsAre;

std::vector<int> range(int first, int count) {
    const auto numbers = std::views::iota(first, first + count);
    return {numbers.begin(), numbers.end()};
}

void addAll(SampleStore& store, const std::vector<int>& numbers) {
    for (int number : numbers)
        store.insert(number);
    ASSERT_TRUE(store.context().save());
}

/// Another program's connection to the store.
class Other {
public:
    explicit Other(const std::filesystem::path& directory) {
        sqlite3_open((directory / SampleStore::fileName).c_str(), &database_);
    }
    ~Other() { sqlite3_close(database_); }
    Other(const Other&) = delete;
    Other& operator=(const Other&) = delete;

    int run(const char* sql) { return sqlite3_exec(database_, sql, nullptr, nullptr, nullptr); }
    /// Reads, and goes on seeing what it sees now.
    int beginToRead() { return run("BEGIN; SELECT count(*) FROM DataEntry"); }
    int end() { return run("ROLLBACK"); }

private:
    sqlite3* database_ = nullptr;
};

class Scrub : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(store.open()); }

    TemporaryDirectory directory;
    SampleStore store{directory.path()};
};

TEST_F(Scrub, LeavesNoByteOfADeletedSampleInAnyFile) {
    for (int count : {1, 10, 3000}) {  // in a leaf, in a few pages, and more than the log holds without a checkpoint
        SCOPED_TRACE(count);
        const auto deleted = range(10'000 * count, count);
        addAll(store, deleted);
        ASSERT_TRUE(leavesTrace(directory.path(), deleted));
        ASSERT_TRUE(store.removeAll());
        EXPECT_TRUE(leavesTrace(directory.path(), deleted)) << "or this test cannot tell";
        store.context().scrub();
        EXPECT_FALSE(leavesTrace(directory.path(), deleted));
        EXPECT_EQ(store.count(), 0);
    }
    EXPECT_EQ(test::integrity(directory.path()), "ok");
}

TEST_F(Scrub, SparesWhatWasStoredAfterTheDeletion) {
    addAll(store, range(0, 50));
    ASSERT_TRUE(store.removeAll());
    ASSERT_TRUE(store.add(1000));
    store.insert(1001);
    store.context().scrub();
    EXPECT_FALSE(leavesTrace(directory.path(), range(0, 50)));
    EXPECT_THAT(*store.numbers(), ElementsAre(1000, 1001));
}

TEST_F(Scrub, IsNotOwedForADeletionOfNothing) {
    ASSERT_TRUE(store.removeAll());
    test::FaultyVfs vfs;
    SampleStore watched(directory.path(), vfs.name());
    ASSERT_TRUE(watched.open());
    ASSERT_TRUE(watched.removeAll());
    watched.context().scrub();
    EXPECT_EQ(vfs.syncs(), 0);
}

TEST_F(Scrub, CostsNothingOnceItIsDone) {
    test::FaultyVfs vfs;
    SampleStore watched(directory.path(), vfs.name());
    ASSERT_TRUE(watched.open());
    addAll(watched, range(0, 100));
    ASSERT_TRUE(watched.removeAll());
    watched.context().scrub();
    ASSERT_TRUE(watched.add(1000));
    const int before = vfs.syncs();
    ASSERT_TRUE(watched.add(1001));
    EXPECT_EQ(vfs.syncs() - before, 1);
}

TEST_F(Scrub, WaitsForAReaderAndIsDoneByTheNextOperationAfterIt) {
    struct Case {
        const char* what;
        std::function<bool(SampleStore&)> operation;
    };
    int first = 0;
    for (const Case& c : {
             Case{"count", [](SampleStore& s) { return s.count().has_value(); }},
             Case{"fetch", [](SampleStore& s) { return s.numbers().has_value(); }},
             Case{"save", [](SampleStore& s) { return s.add(100'000).has_value(); }},
             Case{"scrub",
                  [](SampleStore& s) {
                      s.context().scrub();
                      return true;
                  }},
         }) {
        SCOPED_TRACE(c.what);
        const auto deleted = range(first += 1000, 100);
        addAll(store, deleted);
        Other reader(directory.path());
        ASSERT_EQ(reader.beginToRead(), SQLITE_OK);
        ASSERT_TRUE(store.removeAll());
        store.context().scrub();
        ASSERT_TRUE(c.operation(store));
        EXPECT_TRUE(leavesTrace(directory.path(), deleted)) << "or this test cannot tell";
        ASSERT_EQ(reader.end(), SQLITE_OK);
        ASSERT_TRUE(c.operation(store));
        EXPECT_FALSE(leavesTrace(directory.path(), deleted));
    }
}

TEST_F(Scrub, RebuildsThePagesOnlyOnceWhileAReaderStays) {
    addAll(store, range(0, 100));
    Other reader(directory.path());
    ASSERT_EQ(reader.beginToRead(), SQLITE_OK);
    test::FaultyVfs vfs;
    SampleStore watched(directory.path(), vfs.name());
    ASSERT_TRUE(watched.open());
    ASSERT_TRUE(watched.removeAll());
    watched.context().scrub();
    ASSERT_TRUE(watched.add(1000));
    const int before = vfs.writes();
    for (int number = 1001; number <= 1010; ++number)
        ASSERT_TRUE(watched.add(number));
    // A sample is a frame or two of the log; a rebuilt store would be all pages each time.
    EXPECT_LE(vfs.writes() - before, 10 * 4);
    ASSERT_EQ(reader.end(), SQLITE_OK);
    ASSERT_TRUE(watched.add(1011));
    EXPECT_FALSE(leavesTrace(directory.path(), range(0, 100)));
}

TEST_F(Scrub, CoversADeletionMadeWhileAnEarlierOneIsStillOwed) {
    addAll(store, range(0, 100));
    Other reader(directory.path());
    ASSERT_EQ(reader.beginToRead(), SQLITE_OK);
    ASSERT_TRUE(store.removeAll());
    store.context().scrub();
    addAll(store, range(100, 100));
    ASSERT_TRUE(store.removeAll());
    ASSERT_EQ(reader.end(), SQLITE_OK);
    store.context().scrub();
    EXPECT_FALSE(leavesTrace(directory.path(), range(0, 200)));
}

TEST_F(Scrub, WaitsForAWriterToo) {
    addAll(store, range(0, 100));
    ASSERT_TRUE(store.removeAll());
    Other writer(directory.path());
    ASSERT_EQ(writer.run("BEGIN IMMEDIATE"), SQLITE_OK);
    store.context().scrub();
    EXPECT_TRUE(leavesTrace(directory.path(), range(0, 100))) << "or this test cannot tell";
    ASSERT_EQ(writer.end(), SQLITE_OK);
    ASSERT_TRUE(store.count());
    EXPECT_FALSE(leavesTrace(directory.path(), range(0, 100)));
}

TEST_F(Scrub, IsDoneAtTheNextOpening) {
    addAll(store, range(0, 100));
    ASSERT_TRUE(store.removeAll());
    SampleStore next(directory.path());
    ASSERT_TRUE(next.open());
    EXPECT_FALSE(leavesTrace(directory.path(), range(0, 100)));
}

TEST(ScrubOfOtherProcess, IsDoneWhenThatOneEndedBefore) {
    const TemporaryDirectory directory;
    const auto deleted = range(0, 100);
    const auto opened = directory.path() / "opened";
    test::ChildProcess child([&](int) -> int {
        while (!std::filesystem::exists(opened))
            usleep(1000);
        SampleStore store(directory.path());
        if (!store.open()) _exit(1);
        for (int number : deleted)
            store.insert(number);
        if (!store.context().save() || !store.removeAll()) _exit(1);
        _exit(0);  // as a killed process: nothing is closed
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
