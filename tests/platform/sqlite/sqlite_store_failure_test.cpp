#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using test::FileCall;
using test::SampleStore;
using SqliteObjectStoreTest = test::SampleStoreTest;

TEST_F(SqliteObjectStoreTest, KeepsRecordsPendingWhileItCannotBeWritten) {
    struct Case {
        FileCall call;
        int code;
        bool canBeEmptied;  // on a full disk by cutting its files
    };
    std::vector<int> expected;
    int next = 0;
    for (const Case& c :
         {Case{FileCall::write, SQLITE_READONLY, false}, Case{FileCall::sync, SQLITE_IOERR_FSYNC, false},
          Case{FileCall::write, SQLITE_FULL, true}, Case{FileCall::write, SQLITE_IOERR_WRITE, true}}) {
        SCOPED_TRACE(c.code);
        const int first = next;
        ASSERT_TRUE(store.addAll(test::range(first, 300)));
        next += 300;
        vfs.failEvery(c.call, c.code);
        const std::vector pending{next++, next++};
        for (int number : pending) {
            const auto saved = store.add(number);
            ASSERT_FALSE(saved);
            EXPECT_THAT(saved.error().description, HasSubstr(SampleStore::fileName));
        }
        std::ranges::copy(test::range(first, 302), std::back_inserter(expected));
        EXPECT_EQ(store.numbers(), expected);
        EXPECT_EQ(store.removeAll().has_value(), c.canBeEmptied);
        if (c.canBeEmptied) expected = pending;
        EXPECT_EQ(test::leavesTrace(directory.path(), test::range(first, 300)), !c.canBeEmptied);
        vfs.heal();
        EXPECT_EQ(store.numbers(), expected);
        expected.push_back(next);
        EXPECT_TRUE(store.add(next++));
        EXPECT_EQ(store.count(), expected.size());
        SampleStore other(directory.path());
        ASSERT_TRUE(other.open());
        EXPECT_EQ(other.numbers(), expected);
    }
}

TEST_F(SqliteObjectStoreTest, IsNotEmptiedByCuttingWhileAnotherProgramHasItOpen) {
    ASSERT_TRUE(store.addAll(test::range(0, 300)));
    {
        SampleStore other(directory.path());
        ASSERT_TRUE(other.open());
        vfs.failEvery(FileCall::write, SQLITE_FULL);
        EXPECT_FALSE(store.removeAll());
        EXPECT_EQ(other.count(), 300);
    }
    EXPECT_TRUE(store.removeAll());
}

TEST_F(SqliteObjectStoreTest, IsScrubbedByCuttingOnlyWhileNothingIsStored) {
    const auto deleted = test::range(0, 300);
    for (const bool refilled : {true, false}) {
        ASSERT_TRUE(store.addAll(deleted) && store.removeAll());
        if (refilled)
            test::OtherProgram(directory.path() / SampleStore::fileName).run("INSERT INTO DataEntry DEFAULT VALUES");
        vfs.failEvery(FileCall::write, SQLITE_FULL);
        store.context().scrub();
        EXPECT_EQ(test::leavesTrace(directory.path(), deleted), refilled);
        vfs.heal();
        EXPECT_EQ(store.count(), refilled ? 1 : 0);
        EXPECT_TRUE(store.removeAll());
        store.context().scrub();
        EXPECT_FALSE(test::leavesTrace(directory.path(), deleted));
    }
}

/// What a store holds afterwards.
std::vector<int> removeAllButPending(SampleStore& store) {
    store.insert(3);
    return store.removeAll() ? std::vector{3} : std::vector{0, 1, 2, 3};
}

TEST(SqliteObjectStore, LosesAndRepeatsNothingWhicheverCallFails) {
    const TemporaryDirectory original;
    {
        SampleStore store(original.path());
        ASSERT_TRUE(store.open() && store.addAll({0, 1, 2}));
    }
    struct Operation {
        const char* what;
        std::function<std::vector<int>(SampleStore&)> run;  ///< returns the samples that must be there afterwards
    };
    for (const Operation& operation : {
             Operation{"save one",
                       [](SampleStore& store) {
                           std::ignore = store.add(3);
                           return std::vector{0, 1, 2, 3};
                       }},
             Operation{"save several",
                       [](SampleStore& store) {
                           std::ignore = store.addAll({3, 4, 5, 6});
                           return std::vector{0, 1, 2, 3, 4, 5, 6};
                       }},
             Operation{"fetch and count",
                       [](SampleStore& store) {
                           const std::vector all{0, 1, 2, 3};
                           store.insert(3);
                           EXPECT_EQ(store.count().value_or(4), 4);
                           EXPECT_EQ(store.numbers().value_or(all), all);
                           return all;
                       }},
             Operation{"delete", removeAllButPending},
             Operation{"delete and scrub",
                       [](SampleStore& store) {
                           const auto left = removeAllButPending(store);
                           store.context().scrub();
                           return left;
                       }},
         }) {
        bool reached = true;
        for (int call = 1; reached && !HasFailure(); ++call) {
            SCOPED_TRACE(std::string(operation.what) + ", call " + std::to_string(call));
            const TemporaryDirectory directory;
            std::filesystem::copy(original.path(), directory.path());
            test::FaultyVfs vfs;
            SampleStore store(directory.path(), vfs.name());
            ASSERT_TRUE(store.open());
            vfs.failCall(call);
            std::vector<int> expected = operation.run(store);
            reached = vfs.reached();
            vfs.heal();

            EXPECT_EQ(store.numbers(), expected);
            EXPECT_TRUE(store.add(99));
            expected.push_back(99);
            EXPECT_EQ(store.numbers(), expected);
            EXPECT_EQ(store.count(), expected.size());
            SampleStore reopened(directory.path());
            ASSERT_TRUE(reopened.open());
            EXPECT_EQ(reopened.numbers(), expected);
            EXPECT_EQ(test::integrity(directory.path()), "ok");
            EXPECT_EQ(test::leavesTrace(directory.path(), {0, 1, 2}), expected.front() == 0);
        }
    }
}

}  // namespace
}  // namespace tarvex::platform
