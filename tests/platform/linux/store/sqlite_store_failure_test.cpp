#include <gmock/gmock.h>
#include <sqlite3.h>

#include <functional>
#include <tuple>

#include "faulty_vfs.h"
#include "sample_store.h"
#include "temporary_directory.h"

namespace tarvex::platform {
namespace {

using test::FaultyVfs;
using test::FileCall;
using test::SampleStore;
using test::TemporaryDirectory;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

TEST(SqliteObjectStore, KeepsRecordsPendingWhileItCannotBeWritten) {
    struct Case {
        const char* what;
        FileCall call;
        int code;
    };
    for (const Case& c : {
             Case{"disk full", FileCall::write, SQLITE_FULL},
             Case{"file system became read-only", FileCall::write, SQLITE_READONLY},
             Case{"write error", FileCall::write, SQLITE_IOERR_WRITE},
             Case{"sync error", FileCall::sync, SQLITE_IOERR_FSYNC},
         }) {
        SCOPED_TRACE(c.what);
        const TemporaryDirectory directory;
        FaultyVfs vfs;
        SampleStore store(directory.path(), vfs.name());
        ASSERT_TRUE(store.open());
        ASSERT_TRUE(store.add(1));
        vfs.failEvery(c.call, c.code);
        for (int number : {2, 3, 4}) {
            const auto saved = store.add(number);
            ASSERT_FALSE(saved);
            EXPECT_THAT(saved.error().description, HasSubstr(SampleStore::fileName));
        }
        EXPECT_FALSE(store.removeAll());
        EXPECT_EQ(store.count(), 4);
        EXPECT_THAT(*store.numbers(), ElementsAre(1, 2, 3, 4));
        vfs.heal();
        EXPECT_TRUE(store.add(5));
        EXPECT_EQ(store.count(), 5);
        SampleStore other(directory.path());
        ASSERT_TRUE(other.open());
        EXPECT_THAT(*other.numbers(), ElementsAre(1, 2, 3, 4, 5));
    }
}

TEST(SqliteObjectStore, KeepsRecordsPendingWhileAnotherProgramHoldsTheLock) {
    const TemporaryDirectory directory;
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    ASSERT_TRUE(store.add(1));
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open((directory.path() / SampleStore::fileName).c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    EXPECT_FALSE(store.add(2));
    EXPECT_THAT(*store.numbers(), ElementsAre(1, 2)) << "reading goes on";
    ASSERT_EQ(sqlite3_exec(other, "ROLLBACK", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(other);
    EXPECT_TRUE(store.add(3));
    EXPECT_THAT(*store.numbers(), ElementsAre(1, 2, 3));
}

/// What is done while one call after the other fails: it returns the samples that must be there afterwards.
struct Operation {
    const char* what;
    std::function<std::vector<int>(SampleStore&)> run;
};

const std::vector<Operation> operations{
    {"save one",
     [](SampleStore& store) {
         std::ignore = store.add(3);
         return std::vector{0, 1, 2, 3};
     }},
    {"save several",
     [](SampleStore& store) {
         for (int number : {3, 4, 5, 6})
             store.insert(number);
         std::ignore = store.context().save();
         return std::vector{0, 1, 2, 3, 4, 5, 6};
     }},
    {"fetch and count",
     [](SampleStore& store) {
         store.insert(3);
         EXPECT_EQ(store.count().value_or(4), 4);
         EXPECT_EQ(store.numbers().value_or(std::vector{0, 1, 2, 3}), (std::vector{0, 1, 2, 3}));
         return std::vector{0, 1, 2, 3};
     }},
    {"delete",
     [](SampleStore& store) {
         store.insert(3);
         return store.removeAll() ? std::vector{3} : std::vector{0, 1, 2, 3};
     }},
    {"delete and scrub",
     [](SampleStore& store) {
         store.insert(3);
         const bool removed = store.removeAll().has_value();
         store.context().scrub();
         return removed ? std::vector{3} : std::vector{0, 1, 2, 3};
     }},
};

/// A store of the samples 0 to 2, without the cost of making one.
void copyTemplate(const std::filesystem::path& to) {
    static const TemporaryDirectory original;
    const auto file = original.path() / SampleStore::fileName;
    if (!std::filesystem::exists(file)) {
        SampleStore store(original.path());
        ASSERT_TRUE(store.open());
        for (int number : {0, 1, 2})
            store.insert(number);
        ASSERT_TRUE(store.context().save());
    }
    std::filesystem::copy(file, to / SampleStore::fileName);
}

void expectWorkingStore(SampleStore& store, const std::filesystem::path& directory, std::vector<int> numbers) {
    EXPECT_THAT(*store.numbers(), ElementsAreArray(numbers));
    EXPECT_TRUE(store.add(99));
    numbers.push_back(99);
    EXPECT_THAT(*store.numbers(), ElementsAreArray(numbers));
    EXPECT_EQ(store.count(), numbers.size());
    SampleStore reopened(directory);
    ASSERT_TRUE(reopened.open());
    EXPECT_THAT(*reopened.numbers(), ElementsAreArray(numbers));
    EXPECT_EQ(test::integrity(directory), "ok");
    EXPECT_EQ(test::leavesTrace(directory, {0, 1, 2}), numbers.front() == 0);
}

TEST(SqliteObjectStore, LosesAndRepeatsNothingWhicheverCallFails) {
    for (const Operation& operation : operations) {
        SCOPED_TRACE(operation.what);
        bool reached = true;
        for (int call = 1; reached; ++call) {
            SCOPED_TRACE(call);
            const TemporaryDirectory directory;
            ASSERT_NO_FATAL_FAILURE(copyTemplate(directory.path()));
            FaultyVfs vfs;
            SampleStore store(directory.path(), vfs.name());
            ASSERT_TRUE(store.open());
            vfs.failCall(call);
            const auto expected = operation.run(store);
            reached = vfs.reached();
            vfs.heal();
            expectWorkingStore(store, directory.path(), expected);
            if (HasFailure()) return;
        }
    }
}

}  // namespace
}  // namespace tarvex::platform
