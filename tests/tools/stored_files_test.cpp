// What a look at a store keeps from happening to its files, and what it does not.

#include "store/stored_files.h"

#include "child_process.h"
#include "platform/sqlite/sample_store.h"
#include "prelude.h"

namespace tarvex::tool {

TEST(QuietDatabase, HoldsOffAllButSamplesThatAreAddedToTheLog) {
    const TemporaryDirectory directory;
    test::SampleStore store(directory.path());
    const auto file = directory.path() / test::SampleStore::fileName;
    ASSERT_TRUE(store.open() && store.addAll(test::range(0, 10)));
    test::OtherProgram other(file);
    // The first column is 1 when others keep the log from being moved and cut.
    EXPECT_EQ(other.run("PRAGMA wal_checkpoint(TRUNCATE)"), "0");
    ASSERT_TRUE(store.add(10));
    test::ChildProcess holder([&](int output) {
        const auto quiet = QuietDatabase::hold(file);
        const char answer = quiet ? '+' : '-';
        if (::write(output, &answer, 1) != 1) return 1;
        ::pause();
        return 0;
    });
    char answer = 0;
    ASSERT_EQ(::read(holder.output(), &answer, 1), 1);
    ASSERT_EQ(answer, '+');
    const auto before = std::filesystem::last_write_time(file);
    EXPECT_EQ(other.run("PRAGMA wal_checkpoint(TRUNCATE)"), "1");
    EXPECT_TRUE(store.add(11)) << "a tick's sample is stored";
    EXPECT_TRUE(store.removeAll()) << "and so is a deletion, in the log";
    EXPECT_EQ(std::filesystem::last_write_time(file), before);
    holder.kill();
    EXPECT_EQ(holder.wait(), -1);
    EXPECT_EQ(other.run("PRAGMA wal_checkpoint(TRUNCATE)"), "0");
    EXPECT_GT(std::filesystem::last_write_time(file), before);
}

TEST(QuietDatabase, WaitsForALogThatIsBeingMovedAndGivesUp) {
    const TemporaryDirectory directory;
    const auto file = directory.path() / test::SampleStore::fileName;
    test::fillStore(directory.path(), test::range(0, 3));
    test::ChildProcess writer([&](int output) {
        test::OtherProgram exclusive(file);
        exclusive.run("PRAGMA locking_mode=EXCLUSIVE");
        exclusive.beginToWrite();
        const char ready = '+';
        if (::write(output, &ready, 1) != 1) return 1;
        ::pause();
        return 0;
    });
    char ready = 0;
    ASSERT_EQ(::read(writer.output(), &ready, 1), 1);
    EXPECT_TRUE(processThatUses(file));
    const auto refused = QuietDatabase::hold(file);
    ASSERT_FALSE(refused);
    EXPECT_THAT(refused.error(), HasSubstr("is being changed by another process"));
    writer.kill();
    static_cast<void>(writer.wait());
    EXPECT_FALSE(processThatUses(file));
    EXPECT_TRUE(QuietDatabase::hold(file));
}

}  // namespace tarvex::tool
