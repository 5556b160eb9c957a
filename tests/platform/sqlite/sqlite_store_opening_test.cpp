#include <unistd.h>

#include "child_process.h"
#include "prelude.h"
#include "read_only_directory.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using std::filesystem::path;
using test::SampleStore;

constexpr std::uintmax_t pageSize = 4096;

void fill(const path& directory, int samples) {
    SampleStore store(directory);
    ASSERT_TRUE(store.open());
    ASSERT_TRUE(store.addAll(test::range(0, samples)));
}

/// As a killed process leaves a store: the records are in the log.
void fillLog(const path& directory, int samples) {
    const auto work = [&](int) -> int {
        SampleStore store(directory);
        _exit(store.open() && store.addAll(test::range(0, samples)) ? 0 : 1);
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

/// The index beside the log is SQLite's own and is made anew by every process.
std::map<path, std::string> contentsWithoutIndex(const path& directory) {
    std::map<path, std::string> contents;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        if (!entry.path().native().ends_with("-shm")) contents.emplace(entry, contentsOf(entry));
    return contents;
}

/// Another program changed the tables.
auto sql(const char* statements) {
    return [statements](const path& file) { test::OtherProgram(file).run(statements); };
}

TEST(SqliteObjectStore, NamesADamagedFileAndLeavesItAsItIs) {
    struct Damage {
        const char* what;
        int samples;
        std::function<void(const path& file)> cause;
    };
    for (const auto& [what, samples, cause] : {
             Damage{"garbage", 0, [](const path& file) { writeFile(file, std::string(100'000, 'g')); }},
             Damage{"short garbage", 0, [](const path& file) { writeFile(file, "gg"); }},
             Damage{"cut within the first page", 1000,
                    [](const path& file) { std::filesystem::resize_file(file, 1000); }},
             Damage{"cut off", 1000,
                    [](const path& file) {
                        std::filesystem::resize_file(file, std::filesystem::file_size(file) - 2 * pageSize);
                    }},
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
             Damage{"a log alone", 0,
                    [](const path& file) { writeFile(file.native() + "-wal", "the rest of a store"); }},
             Damage{"damaged tables", 10, [](const path& file) { overwrite(file, 100, 1000); }},
             Damage{"damaged records", 10, overwriteFromThirdPage},
             Damage{"other tables", 0, sql("CREATE TABLE a(b)")},
             Damage{
                 "a column of another type", 0,
                 sql("CREATE TABLE DataEntry(seq INTEGER PRIMARY KEY, id BLOB, timestamp TEXT, type TEXT, data BLOB)")},
             Damage{"a column more", 1, sql("ALTER TABLE DataEntry ADD COLUMN more")},
             Damage{"a view in place of the table", 1,
                    sql("ALTER TABLE DataEntry RENAME TO x; CREATE VIEW DataEntry AS SELECT * FROM x")},
             Damage{"no place to remember a scrub", 1, sql("DROP TABLE _scrub")},
             Damage{"an empty place to remember a scrub", 1, sql("DELETE FROM _scrub")},
             Damage{"another place to remember a scrub", 1, sql("ALTER TABLE _scrub DROP COLUMN scrubbed")},
             Damage{"a directory", 0, [](const path& file) { std::filesystem::create_directory(file); }},
         }) {
        SCOPED_TRACE(what);
        const TemporaryDirectory directory;
        const auto file = directory.path() / SampleStore::fileName;
        if (samples > 0) fill(directory.path(), samples);
        cause(file);
        const auto before = contentsWithoutIndex(directory.path());
        {
            SampleStore store(directory.path());
            const auto opened = store.open();
            ASSERT_FALSE(opened);
            EXPECT_THAT(opened.error().description, HasSubstr(file.native()));
            EXPECT_THAT(opened.error().userInfo, HasSubstr(file.native()));
        }
        auto after = contentsWithoutIndex(directory.path());
        std::erase_if(after, [&](const auto& entry) { return !before.contains(entry.first); });
        EXPECT_TRUE(after == before);
    }
}

TEST(SqliteObjectStore, CannotBeOpenedWhereItsDirectoryIsMissing) {
    const TemporaryDirectory directory;
    SampleStore store(directory.path() / "missing");
    const auto opened = store.open();
    ASSERT_FALSE(opened);
    EXPECT_THAT(opened.error().description, HasSubstr(SampleStore::fileName));
}

TEST(SqliteObjectStore, CannotBeOpenedWhereItCannotBeWritten) {
    const TemporaryDirectory directory;
    fillLog(directory.path(), 10);
    test::ChildProcess child([&](int) {
        const test::ReadOnlyDirectory readOnly(directory.path());
        SampleStore store(directory.path());
        const auto opened = store.open();
        return !opened && opened.error().description.contains(SampleStore::fileName) ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    EXPECT_EQ(store.count(), 10);
}

TEST(SqliteObjectStore, WaitsForAProcessThatIsJustCreatingIt) {
    const TemporaryDirectory directory;
    auto creator = std::make_unique<test::OtherProgram>(directory.path() / SampleStore::fileName);
    creator->beginToWrite();
    std::jthread creating([&] {
        std::this_thread::sleep_for(50ms);
        creator.reset();
    });
    SampleStore store(directory.path());
    EXPECT_TRUE(store.open());
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
        ASSERT_TRUE(store.open());
        ASSERT_TRUE(store.add(1));
        EXPECT_THAT(*store.numbers(), ElementsAre(1));
    }
}

TEST(SqliteObjectStore, FailsAFetchThatMeetsDamage) {
    const TemporaryDirectory directory;
    const auto file = directory.path() / SampleStore::fileName;
    {
        SampleStore store(directory.path());
        ASSERT_TRUE(store.open());
        for (int number = 0; number < 2000; ++number)
            store.insert(7 * number);  // short ones, many to a page
        ASSERT_TRUE(store.context().save());
    }
    overwrite(file, std::filesystem::file_size(file) / 2 / pageSize * pageSize, pageSize);
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    EXPECT_EQ(store.count(), 2000);
    const auto fetched = store.numbers();
    ASSERT_FALSE(fetched);
    EXPECT_THAT(fetched.error().description, HasSubstr(file.native()));
}

}  // namespace
}  // namespace tarvex::platform
