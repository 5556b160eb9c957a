#include <gmock/gmock.h>
#include <sqlite3.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <map>
#include <thread>
#include <tuple>

#include "child_process.h"
#include "faulty_vfs.h"
#include "read_only_directory.h"
#include "sample_store.h"
#include "temporary_directory.h"

namespace tarvex::platform {
namespace {

using test::contentsOf;
using test::SampleStore;
using test::TemporaryDirectory;
using testing::ElementsAre;
using testing::HasSubstr;

void fill(const std::filesystem::path& directory, int samples) {
    SampleStore store(directory);
    ASSERT_TRUE(store.open());
    for (int number = 0; number < samples; ++number)
        store.insert(number);
    ASSERT_TRUE(store.context().save());
}

/// As a killed process leaves a store: the records are in the log.
void fillLog(const std::filesystem::path& directory, int samples) {
    const int ended = test::ChildProcess([&](int) -> int {
                          SampleStore store(directory);
                          if (!store.open()) _exit(1);
                          for (int number = 0; number < samples; ++number)
                              store.insert(number);
                          _exit(store.context().save() ? 0 : 1);
                      }).wait();
    ASSERT_EQ(ended, 0);
}

void write(const std::filesystem::path& file, const std::string& contents) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << contents;
}

void overwrite(const std::filesystem::path& file, std::streamoff offset, const std::string& contents) {
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(offset) << contents;
}

std::map<std::string, std::string> snapshot(const std::filesystem::path& directory) {
    std::map<std::string, std::string> contents;
    for (const auto& entry : std::filesystem::directory_iterator(directory))
        contents.emplace(entry.path().filename(), contentsOf(entry.path()));
    return contents;
}

/// The index beside the log is SQLite's own and is made anew by every process.
void expectUntouched(const std::filesystem::path& directory, const std::map<std::string, std::string>& before) {
    const auto after = snapshot(directory);
    for (const auto& [name, contents] : before) {
        if (name.ends_with("-shm")) continue;
        EXPECT_TRUE(after.contains(name) && after.at(name) == contents) << name;
    }
}

TEST(SqliteObjectStore, NamesTheFileItCannotOpenAndLeavesItAsItIs) {
    using Path = std::filesystem::path;
    struct Case {
        const char* what;
        std::function<void(const Path& directory, const Path& file)> damage;
    };
    for (const Case& c : {
             Case{"garbage", [](const Path&, const Path& file) { write(file, std::string(100'000, 'g')); }},
             Case{"short garbage", [](const Path&, const Path& file) { write(file, "gg"); }},
             Case{"cut within the first page",
                  [](const Path& directory, const Path& file) {
                      fill(directory, 1000);
                      std::filesystem::resize_file(file, 1000);
                  }},
             Case{"cut off",
                  [](const Path& directory, const Path& file) {
                      fill(directory, 1000);
                      std::filesystem::resize_file(file, std::filesystem::file_size(file) - 8192);
                  }},
             Case{"emptied, with a log",
                  [](const Path& directory, const Path& file) {
                      fillLog(directory, 10);
                      write(file, "s");
                  }},
             Case{"damaged, with a log",
                  [](const Path& directory, const Path& file) {
                      fill(directory, 1000);
                      fillLog(directory, 1);
                      overwrite(file, 8192, std::string(std::filesystem::file_size(file) - 8192, 'x'));
                  }},
             Case{"a log alone",
                  [](const Path&, const Path& file) { write(file.native() + "-wal", "what is left of a store"); }},
             Case{"damaged tables",
                  [](const Path& directory, const Path& file) {
                      fill(directory, 10);
                      overwrite(file, 100, std::string(1000, 'x'));
                  }},
             Case{"damaged records",
                  [](const Path& directory, const Path& file) {
                      fill(directory, 10);
                      overwrite(file, 8192, std::string(std::filesystem::file_size(file) - 8192, 'x'));
                  }},
             Case{"other tables",
                  [](const Path& directory, const Path&) { test::runSql(directory, "CREATE TABLE a(b)"); }},
             Case{"a column of another type",
                  [](const Path& directory, const Path&) {
                      test::runSql(directory,
                                   "CREATE TABLE DataEntry(seq INTEGER PRIMARY KEY, id BLOB, timestamp TEXT, type TEXT,"
                                   " data BLOB)");
                  }},
             Case{"a column less",
                  [](const Path& directory, const Path&) {
                      fill(directory, 1);
                      test::runSql(directory, "ALTER TABLE DataEntry DROP COLUMN data");
                  }},
             Case{"a column more",
                  [](const Path& directory, const Path&) {
                      fill(directory, 1);
                      test::runSql(directory, "ALTER TABLE DataEntry ADD COLUMN more");
                  }},
             Case{"a view in place of the table",
                  [](const Path& directory, const Path&) {
                      fill(directory, 1);
                      test::runSql(directory,
                                   "ALTER TABLE DataEntry RENAME TO x; CREATE VIEW DataEntry AS SELECT * FROM x");
                  }},
             Case{"no place to remember a scrub",
                  [](const Path& directory, const Path&) {
                      fill(directory, 1);
                      test::runSql(directory, "DROP TABLE _scrub");
                  }},
             Case{"a directory", [](const Path&, const Path& file) { std::filesystem::create_directory(file); }},
         }) {
        SCOPED_TRACE(c.what);
        const TemporaryDirectory directory;
        const auto file = directory.path() / SampleStore::fileName;
        c.damage(directory.path(), file);
        const auto before = snapshot(directory.path());
        {
            SampleStore store(directory.path());
            const auto opened = store.open();
            ASSERT_FALSE(opened);
            EXPECT_THAT(opened.error().description, HasSubstr(file.native()));
            EXPECT_THAT(opened.error().userInfo, HasSubstr(file.native()));
        }
        expectUntouched(directory.path(), before);
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
    sqlite3* other = nullptr;
    ASSERT_EQ(sqlite3_open((directory.path() / SampleStore::fileName).c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    std::jthread creating([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        sqlite3_close(other);
    });
    SampleStore store(directory.path());
    EXPECT_TRUE(store.open());
}

TEST(SqliteObjectStore, OpensAfterAnyFailureWhileItWasCreated) {
    for (int call = 1;; ++call) {
        SCOPED_TRACE(call);
        const TemporaryDirectory directory;
        test::FaultyVfs vfs;
        {
            SampleStore store(directory.path(), vfs.name());
            vfs.failCall(call);
            std::ignore = store.open();
        }
        const bool reached = vfs.reached();
        vfs.heal();
        SampleStore store(directory.path(), vfs.name());
        ASSERT_TRUE(store.open());
        ASSERT_TRUE(store.add(1));
        EXPECT_THAT(*store.numbers(), ElementsAre(1));
        if (!reached) break;
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
    overwrite(file, static_cast<std::streamoff>(std::filesystem::file_size(file) / 8192 * 4096),
              std::string(4096, 'x'));
    SampleStore store(directory.path());
    ASSERT_TRUE(store.open());
    EXPECT_EQ(store.count(), 2000);
    const auto fetched = store.numbers();
    ASSERT_FALSE(fetched);
    EXPECT_THAT(fetched.error().description, HasSubstr(file.native()));
}

}  // namespace
}  // namespace tarvex::platform
