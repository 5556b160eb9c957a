#include <unistd.h>

#include "child_process.h"
#include "prelude.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using std::filesystem::path;
using test::FileCall;
using test::range;
using test::SampleStore;
using SqliteObjectStoreTest = test::SampleStoreTest;

constexpr std::uintmax_t pageSize = 4096;

TEST_F(SqliteObjectStoreTest, KeepsRecordsPendingWhileItCannotBeWritten) {
    std::vector<int> expected;
    int next = 0;
    // A full disk's store can be emptied, by cutting its files.
    for (const auto& [call, code, canBeEmptied] :
         {std::tuple(FileCall::write, SQLITE_READONLY, false), std::tuple(FileCall::sync, SQLITE_IOERR_FSYNC, false),
          std::tuple(FileCall::write, SQLITE_FULL, true), std::tuple(FileCall::write, SQLITE_IOERR_WRITE, true)}) {
        SCOPED_TRACE(code);
        const auto stored = range(next, 300);
        ASSERT_TRUE(store.addAll(stored));
        const std::vector pending{next + 300, next + 301};
        vfs.failEvery(call, code);
        for (int number : pending)
            EXPECT_THAT(store.add(number).error().description, HasSubstr(SampleStore::fileName));
        std::ranges::copy(range(next, 302), std::back_inserter(expected));
        EXPECT_EQ(store.numbers(), expected);
        EXPECT_EQ(store.removeAll().has_value(), canBeEmptied);
        if (canBeEmptied) expected = pending;
        EXPECT_EQ(test::leavesTrace(directory.path(), stored), !canBeEmptied);
        vfs.heal();
        EXPECT_EQ(store.numbers(), expected);
        expected.push_back(next + 302);
        EXPECT_TRUE(store.add(next + 302));
        next += 303;
        EXPECT_EQ(store.count(), expected.size());
        SampleStore other(directory.path());
        ASSERT_TRUE(other.open());
        EXPECT_EQ(other.numbers(), expected);
    }
}

TEST_F(SqliteObjectStoreTest, IsNotEmptiedByCuttingWhileAnotherProgramHasItOpen) {
    ASSERT_TRUE(store.addAll(range(0, 300)));
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
    const auto deleted = range(0, 300);
    for (const bool refilled : {true, false}) {
        ASSERT_TRUE(store.addAll(deleted) && store.removeAll());
        if (refilled) test::OtherProgram(file).run("INSERT INTO DataEntry DEFAULT VALUES");
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

TEST(SqliteObjectStore, LosesAndRepeatsNothingWhicheverCallFails) {
    using Numbers = std::vector<int>;
    const TemporaryDirectory original;
    test::fillStore(original.path(), {0, 1, 2});
    const auto removeAll = [](SampleStore& store) {
        store.insert(3);
        return store.removeAll() ? Numbers{3} : Numbers{0, 1, 2, 3};
    };
    // Each returns the samples that must be there afterwards.
    const std::map<std::string, std::function<Numbers(SampleStore&)>> operations{
        {"save one", [](SampleStore& store) { return std::ignore = store.add(3), Numbers{0, 1, 2, 3}; }},
        {"save several", [](SampleStore& store) { return std::ignore = store.addAll({3, 4}), Numbers{0, 1, 2, 3, 4}; }},
        {"fetch and count",
         [](SampleStore& store) {
             const Numbers all{0, 1, 2, 3};
             store.insert(3);
             EXPECT_EQ(store.count().value_or(4), 4);
             EXPECT_EQ(store.numbers().value_or(all), all);
             return all;
         }},
        {"delete", removeAll},
        {"delete and scrub", [&](SampleStore& store) {
             auto left = removeAll(store);
             store.context().scrub();
             return left;
         }}};
    for (const auto& [name, operation] : operations) {
        bool reached = true;
        for (int call = 1; reached && !HasFailure(); ++call) {
            SCOPED_TRACE(name + ", call " + std::to_string(call));
            const TemporaryDirectory directory;
            std::filesystem::copy(original.path(), directory.path());
            test::FaultyVfs vfs;
            SampleStore store(directory.path(), vfs.name());
            ASSERT_TRUE(store.open());
            vfs.failCall(call);
            Numbers expected = operation(store);
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

TEST(SqliteObjectStore, OpensAfterAnyFailureWhileItWasCreated) {
    bool reached = true;
    for (int call = 1; reached; ++call) {
        SCOPED_TRACE(call);
        const TemporaryDirectory directory;
        test::FaultyVfs vfs;
        vfs.failCall(call);
        std::ignore = SampleStore(directory.path(), vfs.name()).open();
        reached = vfs.reached();
        vfs.heal();
        SampleStore store(directory.path(), vfs.name());
        ASSERT_TRUE(store.open() && store.add(1));
        EXPECT_THAT(*store.numbers(), ElementsAre(1));
    }
}

TEST(SqliteObjectStore, WaitsForAProcessThatIsJustCreatingIt) {
    const TemporaryDirectory directory;
    auto creator = std::make_unique<test::OtherProgram>(directory.path() / SampleStore::fileName);
    creator->beginToWrite();
    const std::jthread creating([&] {
        std::this_thread::sleep_for(50ms);
        creator.reset();
    });
    EXPECT_TRUE(SampleStore(directory.path()).open());
}

/// As a killed process leaves a store: the records are in the log.
void fillLog(const path& directory, int samples) {
    const auto work = [&](int) -> int {
        SampleStore store(directory);
        _exit(store.open() && store.addAll(range(0, samples)) ? 0 : 1);
    };
    ASSERT_EQ(test::ChildProcess(work).wait(), 0);
}

void overwrite(const path& file, std::uintmax_t offset, std::uintmax_t count) {
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(offset)) << std::string(count, 'x');
}

void overwriteFromThirdPage(const path& file) {
    overwrite(file, 2 * pageSize, std::filesystem::file_size(file) - 2 * pageSize);
}

/// Changes of another program to the tables.
auto sql(const char* statements) {
    return [statements](const path& file) { test::OtherProgram(file).run(statements); };
}

TEST(SqliteObjectStore, NamesADamagedFileAndLeavesItAsItIs) {
    using Damage = std::tuple<const char*, int, std::function<void(const path& file)>>;  // of so many samples
    const auto cutOff = [](const path& file) {
        std::filesystem::resize_file(file, std::filesystem::file_size(file) - 2 * pageSize);
    };
    // The index beside the log is SQLite's own and is made anew by every process.
    const auto contentsWithoutIndex = [](const path& directory) {
        std::map<path, std::string> contents;
        for (const auto& entry : std::filesystem::directory_iterator(directory))
            if (!entry.path().native().ends_with("-shm")) contents.emplace(entry, contentsOf(entry));
        return contents;
    };
    for (const auto& [what, samples, cause] :
         {Damage{"garbage", 0, [](const path& file) { writeFile(file, std::string(100'000, 'g')); }},
          Damage{"short garbage", 0, [](const path& file) { writeFile(file, "gg"); }}, Damage{"cut off", 1000, cutOff},
          Damage{"emptied beside a log", 0,
                 [](const path& file) {
                     fillLog(file.parent_path(), 10);
                     writeFile(file, "s");
                 }},
          Damage{"damaged beside a log", 1000,
                 [](const path& file) {
                     fillLog(file.parent_path(), 1);
                     overwriteFromThirdPage(file);
                 }},
          Damage{"damaged tables", 10, [](const path& file) { overwrite(file, 100, 1000); }},
          Damage{"damaged records", 10, overwriteFromThirdPage}, Damage{"other tables", 0, sql("CREATE TABLE a(b)")},
          Damage{"a column more", 1, sql("ALTER TABLE DataEntry ADD COLUMN more")},
          Damage{"a view in place of the table", 1,
                 sql("ALTER TABLE DataEntry RENAME TO x; CREATE VIEW DataEntry AS SELECT * FROM x")},
          Damage{"an empty place to remember a scrub", 1, sql("DELETE FROM _scrub")},
          Damage{"another place to remember a scrub", 1, sql("ALTER TABLE _scrub DROP COLUMN scrubbed")},
          Damage{"a directory", 0, [](const path& file) { std::filesystem::create_directory(file); }}}) {
        SCOPED_TRACE(what);
        const TemporaryDirectory directory;
        const auto file = directory.path() / SampleStore::fileName;
        if (samples > 0) test::fillStore(directory.path(), range(0, samples));
        cause(file);
        const auto before = contentsWithoutIndex(directory.path());
        {
            const auto opened = SampleStore(directory.path()).open();
            ASSERT_FALSE(opened);
            EXPECT_THAT(opened.error().description, HasSubstr(file.native()));
            EXPECT_THAT(opened.error().userInfo, HasSubstr(file.native()));
        }
        auto after = contentsWithoutIndex(directory.path());
        std::erase_if(after, [&](const auto& entry) { return !before.contains(entry.first); });
        EXPECT_TRUE(after == before);
    }
}

TEST(SqliteObjectStore, CannotBeOpenedInADirectoryThatIsMissingOrCannotBeWritten) {
    const auto fails = [](const path& directory) {
        const auto opened = SampleStore(directory).open();
        return !opened && opened.error().description.contains(SampleStore::fileName);
    };
    const TemporaryDirectory directory;
    EXPECT_TRUE(fails(directory.path() / "missing"));
    fillLog(directory.path(), 10);
    test::ChildProcess child([&](int) {
        const test::ReadOnlyDirectory readOnly(directory.path());
        return fails(directory.path()) ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    EXPECT_EQ(store.count(), 10);
}

}  // namespace
}  // namespace tarvex::platform
