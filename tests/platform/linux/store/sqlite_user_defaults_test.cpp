#include "platform/linux/store/sqlite_user_defaults.h"

#include <sys/stat.h>
#include <unistd.h>

#include "child_process.h"
#include "prelude.h"
#include "read_only_directory.h"
#include "sample_store.h"

namespace tarvex::platform {
namespace {

using test::ChildProcess;

class UserDefaultsFile : public testing::Test {
protected:
    std::unique_ptr<SqliteUserDefaults> open(const char* fileSystem = nullptr) {
        return std::make_unique<SqliteUserDefaults>([path = directory.path()] { return path; }, fileSystem);
    }

    /// What standard error gets while `work` is done and nothing can be written.
    std::string saidWithoutWriting(const std::function<void()>& work) {
        vfs.failEvery(test::FileCall::write, SQLITE_FULL);
        ::testing::internal::CaptureStderr();
        work();
        vfs.heal();
        return ::testing::internal::GetCapturedStderr();
    }

    TemporaryDirectory directory;
    test::FaultyVfs vfs;
    const std::filesystem::path file = directory.path() / "UserDefaults.sqlite";
};

TEST_F(UserDefaultsFile, KeepsValuesAcrossProcesses) {
    {
        const auto defaults = open();
        EXPECT_FALSE(std::filesystem::exists(file)) << "nothing is opened before the first use";
        EXPECT_FALSE(defaults->boolForKey("missing"));
        EXPECT_EQ(defaults->stringForKey("missing"), std::nullopt);
        defaults->setValueForKey(true, "on");
        defaults->setValueForKey(true, "changed");
        defaults->setValueForKey(false, "changed");
        EXPECT_EQ(defaults->setStringIfAbsent("first", "string"), "first");
        EXPECT_EQ(defaults->setStringIfAbsent("second", "string"), "first");
        EXPECT_EQ(defaults->setStringIfAbsent("", "empty"), "");
        EXPECT_EQ(defaults->setStringIfAbsent("x", "empty"), "");
        EXPECT_EQ(defaults->setStringIfAbsent("made", "chosen"), "made");
        defaults->setValueForKey("participant 7", "chosen");
    }
    const auto defaults = open();
    EXPECT_TRUE(defaults->boolForKey("on"));
    EXPECT_FALSE(defaults->boolForKey("changed"));
    EXPECT_EQ(defaults->stringForKey("string"), "first");
    EXPECT_EQ(defaults->stringForKey("empty"), "");
    EXPECT_EQ(defaults->stringForKey("chosen"), "participant 7");
    struct stat status{};
    ASSERT_EQ(stat(file.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST_F(UserDefaultsFile, TellsBoolsFromStringsAndReadsAStringAsABoolLikeThePhonePlatform) {
    const auto defaults = open();
    defaults->setValueForKey(true, "key");
    EXPECT_EQ(defaults->setStringIfAbsent("NO", "key"), "NO") << "a bool is no string";
    EXPECT_FALSE(defaults->boolForKey("key"));
    defaults->setValueForKey(true, "key");
    EXPECT_TRUE(defaults->boolForKey("key"));
    EXPECT_EQ(defaults->stringForKey("key"), std::nullopt);
    for (const char* text : {"YES", "yes", "true", "T", "1", "  +007", "-1", "9 lives"})
        EXPECT_TRUE(defaults->boolForKey(defaults->setStringIfAbsent(text, text))) << text;
    for (const char* text : {"", "NO", "false", "0", "000", "on", "+", "x1", " "})
        EXPECT_FALSE(defaults->boolForKey(defaults->setStringIfAbsent(text, text))) << text;
}

TEST_F(UserDefaultsFile, SeesAtOnceWhatAnotherConnectionWrote) {
    const auto one = open();
    EXPECT_FALSE(one->boolForKey("key"));
    open()->setValueForKey(true, "key");
    EXPECT_TRUE(one->boolForKey("key"));
}

TEST_F(UserDefaultsFile, AgreesOnOneStringWhenProcessesRace) {
    std::deque<ChildProcess> children;
    for (char name = 'a'; name < 'f'; ++name) {
        children.emplace_back([&, name](int output) {
            const char winner = open()->setStringIfAbsent(std::string(1, name), "userID")[0];
            return write(output, &winner, 1) == 1 ? 0 : 1;
        });
    }
    std::string winners(children.size(), '-');
    for (std::size_t i = 0; i < children.size(); ++i)
        EXPECT_EQ(read(children[i].output(), &winners[i], 1), 1);
    EXPECT_EQ(winners, std::string(children.size(), winners.front()));
    EXPECT_EQ(open()->stringForKey("userID"), winners.substr(0, 1));
}

TEST_F(UserDefaultsFile, ServesThreads) {
    const auto defaults = open();
    const auto key = [](int thread, int i) { return std::to_string(thread) + "/" + std::to_string(i); };
    std::vector<std::jthread> threads(4);
    for (int thread = 0; thread < 4; ++thread) {
        threads[static_cast<std::size_t>(thread)] = std::jthread([&, thread] {
            for (int i = 0; i < 10; ++i) {
                defaults->setValueForKey(true, key(thread, i));
                EXPECT_TRUE(defaults->boolForKey(key(thread, i)));
            }
        });
    }
    threads.clear();
    for (int i = 0; i < 40; ++i)
        EXPECT_TRUE(defaults->boolForKey(key(i / 10, i % 10)));
}

TEST_F(UserDefaultsFile, RemembersWhatItCannotWriteAndWritesItLater) {
    const auto defaults = open(vfs.name());
    defaults->setValueForKey(true, "covered");
    const std::string said = saidWithoutWriting([&] {
        defaults->setValueForKey(true, "bool");
        defaults->setValueForKey(false, "covered");
        EXPECT_EQ(defaults->setStringIfAbsent("mine", "string"), "mine");
        EXPECT_EQ(defaults->setStringIfAbsent("other", "string"), "mine");
    });
    EXPECT_THAT(said, HasSubstr(file.native()));
    EXPECT_EQ(std::ranges::count(said, '\n'), 1);
    const auto other = open();
    EXPECT_FALSE(other->boolForKey("bool"));
    for (const auto* reader : {&defaults, &other}) {
        EXPECT_TRUE((*reader)->boolForKey("bool"));
        EXPECT_FALSE((*reader)->boolForKey("covered"));
        EXPECT_EQ((*reader)->stringForKey("string"), "mine");
        defaults->setValueForKey(true, "next");
    }
    EXPECT_TRUE(other->boolForKey("next"));
}

TEST_F(UserDefaultsFile, OpensTheFileThatLiesInItsPlaceAfterAFailure) {
    const auto defaults = open(vfs.name());
    defaults->setValueForKey(true, "stored");
    EXPECT_THAT(saidWithoutWriting([&] { defaults->setValueForKey(true, "unwritten"); }), HasSubstr(file.native()));
    for (const char* suffix : {"", "-wal", "-shm"})
        std::filesystem::remove(file.native() + suffix);
    defaults->setValueForKey(true, "next");
    EXPECT_FALSE(open()->boolForKey("stored"));
    EXPECT_TRUE(open()->boolForKey("unwritten"));
    EXPECT_TRUE(open()->boolForKey("next"));
}

TEST_F(UserDefaultsFile, GivesAStringUpForTheOneThatAnotherProcessStored) {
    const auto defaults = open(vfs.name());
    EXPECT_EQ(defaults->stringForKey("userID"), std::nullopt);
    saidWithoutWriting([&] { EXPECT_EQ(defaults->setStringIfAbsent("mine", "userID"), "mine"); });
    EXPECT_EQ(open()->setStringIfAbsent("theirs", "userID"), "theirs");
    EXPECT_EQ(defaults->stringForKey("userID"), "theirs");
    defaults->setValueForKey(true, "next");
    EXPECT_EQ(open()->stringForKey("userID"), "theirs");
}

TEST_F(UserDefaultsFile, AnswersAReadThatFailsWithWhatWasThereBefore) {
    const auto defaults = open(vfs.name());
    defaults->setValueForKey("participant 7", "userID");
    vfs.failEvery(test::FileCall::sharedLock, SQLITE_IOERR_SHMLOCK);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(defaults->setStringIfAbsent("another", "userID"), "participant 7");
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr(file.native()));
}

TEST_F(UserDefaultsFile, WorksInMemoryBesideADamagedFileAndLeavesItAsItIs) {
    const std::string garbage(10'000, 'g');
    std::ofstream(file) << garbage;
    const auto defaults = open();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(defaults->boolForKey("bool"));
    defaults->setValueForKey(true, "bool");
    EXPECT_TRUE(defaults->boolForKey("bool"));
    EXPECT_EQ(defaults->setStringIfAbsent("mine", "string"), "mine");
    EXPECT_EQ(std::ranges::count(testing::internal::GetCapturedStderr(), '\n'), 1);
    EXPECT_EQ(contentsOf(file), garbage);

    std::filesystem::remove(file);
    defaults->setValueForKey(true, "next");
    EXPECT_TRUE(open()->boolForKey("bool"));
    EXPECT_EQ(open()->stringForKey("string"), "mine");
}

TEST_F(UserDefaultsFile, ReadsADirectoryThatItMayNotWriteTo) {
    open()->setValueForKey(true, "stored");
    ChildProcess child([&](int) {
        const test::ReadOnlyDirectory readOnly(directory.path());
        const auto defaults = open();
        defaults->setValueForKey(true, "unwritten");
        return defaults->boolForKey("stored") && defaults->boolForKey("unwritten") ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
}

}  // namespace
}  // namespace tarvex::platform
