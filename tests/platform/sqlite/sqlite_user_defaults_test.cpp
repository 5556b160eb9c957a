#include "platform/sqlite/sqlite_user_defaults.h"

#include <unistd.h>

#include "child_process.h"
#include "client/sender.h"
#include "prelude.h"
#include "recorded_log.h"
#include "sample_store.h"
#include "tarvex/platform/platform.h"
#include "tarvex/testing/memory_user_defaults.h"

namespace tarvex::platform {
namespace {

using test::ChildProcess;

class UserDefaultsFile : public ::testing::Test {
protected:
    std::unique_ptr<SqliteUserDefaults> open(const char* fileSystem = nullptr) {
        return std::make_unique<SqliteUserDefaults>(
            [this] {
                std::filesystem::create_directory(folder);
                return folder;
            },
            fileSystem);
    }

    TemporaryDirectory directory;
    test::FaultyVfs vfs;
    const std::filesystem::path folder = directory.path() / "data";
    const std::filesystem::path file = folder / "UserDefaults.sqlite";
};

TEST_F(UserDefaultsFile, KeepsValuesAcrossProcesses) {
    {
        const auto defaults = open();
        EXPECT_FALSE(std::filesystem::exists(file)) << "nothing is opened before the first use";
        EXPECT_FALSE(defaults->boolForKey("missing"));
        defaults->setValueForKey(true, "on");
        defaults->setValueForKey(true, "changed");
        defaults->setValueForKey(false, "changed");
        EXPECT_EQ(defaults->setStringIfAbsent("first", "string"), "first");
        defaults->setValueForKey("", "chosen");
    }
    writeFile(file.native() + "-wal", "damaged");
    const auto defaults = open();
    EXPECT_TRUE(defaults->boolForKey("on"));
    EXPECT_FALSE(defaults->boolForKey("changed"));
    EXPECT_EQ(defaults->stringForKey("string"), "first");
    EXPECT_EQ(defaults->setStringIfAbsent("made", "chosen"), "");
    EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
}

TEST_F(UserDefaultsFile, DistinguishesBoolsFromStringsAndReadsAStringAsABool) {
    const auto inFile = open();
    testing::MemoryUserDefaults inMemory;
    for (UserDefaults* defaults : {static_cast<UserDefaults*>(inFile.get()), static_cast<UserDefaults*>(&inMemory)}) {
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
        for (const char* key : {"key", "YES", "missing"}) {
            defaults->removeObjectForKey(key);
            EXPECT_FALSE(defaults->boolForKey(key) || defaults->stringForKey(key)) << key;
        }
        EXPECT_EQ(defaults->setStringIfAbsent("second", "YES"), "second");
    }
}

TEST_F(UserDefaultsFile, AgreesOnOneIdentifierWhenProcessesRace) {
    std::deque<ChildProcess> children;
    for (int i = 0; i < 5; ++i) {
        children.emplace_back([&](int output) {
            const auto host = Platform::makeLinux({.dataDirectory = folder});
            std::optional<std::string> id;
            while (!id)
                id = userID(*host);
            return write(output, id->data(), id->size()) == 36 ? 0 : 1;
        });
    }
    std::set<std::string> identifiers;
    for (const ChildProcess& child : children) {
        std::string id(36, '-');
        EXPECT_EQ(read(child.output(), id.data(), id.size()), 36);
        identifiers.insert(id);
    }
    EXPECT_THAT(identifiers, ElementsAre(*open()->durableStringForKey("userID").value()));
}

TEST_F(UserDefaultsFile, ServesThreads) {
    const auto defaults = open();
    const auto writeAndRead = [&defaults](char name) {
        for (std::size_t i = 1; i < 10; ++i) {
            defaults->setValueForKey(true, std::string(i, name));
            EXPECT_TRUE(defaults->boolForKey(std::string(i, name)));
        }
    };
    const std::jthread one(writeAndRead, 'a');
    const std::jthread other(writeAndRead, 'b');
}

TEST_F(UserDefaultsFile, KeepsUnwrittenValuesAndTriesAgainAtEveryRead) {
    const auto defaults = open(vfs.name());
    defaults->setValueForKey(false, "consent");
    const test::RecordedLog log;
    vfs.failEvery(test::FileCall::write, SQLITE_FULL);
    defaults->setValueForKey(true, "consent");
    for (const char* made : {"mine", "other"})
        EXPECT_EQ(defaults->setStringIfAbsent(made, "userID"), "mine");
    EXPECT_THAT(defaults->durableStringForKey("userID").error(), HasSubstr("userID"));
    EXPECT_THAT(log.lines(), ElementsAre(HasSubstr(file.native())));

    const auto other = open();
    EXPECT_TRUE(defaults->boolForKey("consent") && !other->boolForKey("consent"));
    EXPECT_EQ(other->setStringIfAbsent("theirs", "userID"), "theirs");
    EXPECT_EQ(defaults->durableStringForKey("userID"), "theirs") << "its own gives way, though it still waits";
    vfs.heal();
    EXPECT_TRUE(defaults->boolForKey("consent") && other->boolForKey("consent"));
    EXPECT_EQ(other->stringForKey("userID"), "theirs");
}

TEST_F(UserDefaultsFile, RemovesWhatItCannotRemoveYetAsSoonAsItCan) {
    const auto defaults = open(vfs.name());
    const auto other = open();
    defaults->setValueForKey(true, "consent");
    defaults->setValueForKey("first", "userID");
    vfs.failEvery(test::FileCall::write, SQLITE_FULL);
    for (const char* key : {"consent", "userID"})
        defaults->removeObjectForKey(key);
    EXPECT_TRUE(!defaults->boolForKey("consent") && other->boolForKey("consent"));
    EXPECT_EQ(defaults->setStringIfAbsent("second", "userID"), "second");
    vfs.heal();
    EXPECT_FALSE(defaults->boolForKey("consent") || other->boolForKey("consent"));
    EXPECT_EQ(other->stringForKey("userID"), "second");
    vfs.failEvery(test::FileCall::sharedLock, SQLITE_IOERR_SHMLOCK);
    EXPECT_FALSE(defaults->boolForKey("consent")) << "not known any more";
}

TEST_F(UserDefaultsFile, ReturnsTheLastKnownValueWhileReadsFail) {
    const auto defaults = open(vfs.name());
    defaults->setValueForKey("participant 7", "userID");
    EXPECT_FALSE(defaults->boolForKey("changed"));
    for (const char* key : {"changed", "removed"}) {
        open()->setValueForKey(true, key);
        EXPECT_TRUE(defaults->boolForKey(key));
    }
    test::OtherProgram(file).run("DELETE FROM user_defaults WHERE key = 'removed'");
    EXPECT_FALSE(defaults->boolForKey("removed"));
    vfs.failEvery(test::FileCall::sharedLock, SQLITE_IOERR_SHMLOCK);
    EXPECT_TRUE(defaults->boolForKey("changed"));
    EXPECT_FALSE(defaults->boolForKey("removed"));
    EXPECT_EQ(defaults->setStringIfAbsent("another", "userID"), "participant 7");
    EXPECT_THAT(defaults->durableStringForKey("userID").error(), HasSubstr(file.native()));
    std::filesystem::remove_all(folder);
    EXPECT_FALSE(defaults->boolForKey("changed")) << "it was taken back";
}

TEST_F(UserDefaultsFile, ForgetsAFileThatIsRemovedOrReplacedWhileItIsOpen) {
    const auto another = directory.path() / "another";
    test::OtherProgram(another).run(
        "CREATE TABLE user_defaults(key TEXT PRIMARY KEY, value) WITHOUT ROWID;"
        "INSERT INTO user_defaults VALUES('userID', 'another')");
    for (const std::string_view successor : {"none", "another", "garbage"}) {
        SCOPED_TRACE(successor);
        const auto defaults = open();
        defaults->setValueForKey(true, "consent");
        defaults->setValueForKey("first", "userID");
        std::filesystem::remove(file);
        if (successor == "another") std::filesystem::rename(another, file);
        if (successor == "garbage") writeFile(file, "garbage");
        EXPECT_FALSE(defaults->boolForKey("consent"));
        const auto id = defaults->durableStringForKey("userID");
        EXPECT_EQ(id ? id->value_or("none") : successor, successor);
        defaults->setValueForKey(true, "next");
        EXPECT_TRUE(defaults->boolForKey("next"));
        EXPECT_EQ(contentsOf(file) == "garbage", successor == "garbage");
        std::filesystem::remove_all(folder);
        EXPECT_FALSE(defaults->boolForKey("consent"));
        EXPECT_EQ(open()->boolForKey("next"), !id) << "what could not be written before";
        std::filesystem::remove_all(folder);
    }
}

TEST_F(UserDefaultsFile, ReadsADirectoryThatItMayNotWriteToAndNoFileThatItMayNotOpen) {
    open()->setValueForKey(true, "stored");
    std::filesystem::permissions(directory.path(), std::filesystem::perms::all);
    ChildProcess child([&](int) {
        const test::ReadOnlyDirectory readOnly(folder);
        const auto defaults = open();
        defaults->setValueForKey(true, "unwritten");
        bool right = defaults->boolForKey("stored") && defaults->boolForKey("unwritten");
        std::filesystem::permissions(folder, std::filesystem::perms::none);
        right = right && defaults->boolForKey("stored") && !defaults->durableStringForKey("userID");
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
        std::filesystem::permissions(file, std::filesystem::perms::none);
        return right && !open()->durableStringForKey("userID") ? 0 : 1;
    });
    EXPECT_EQ(child.wait(), 0);
}

}  // namespace
}  // namespace tarvex::platform
