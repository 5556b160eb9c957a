#include "collector/store/sqlite/sqlite_store.h"

#include <sqlite3.h>

#include "prelude.h"
#include "store_behaviour.h"

namespace tarvex::collector {

TEST(SqliteStore, DoesWhatEveryStoreDoes) {
    for (const behaviour::Behaviour& behaviour : behaviour::all) {
        SCOPED_TRACE(behaviour.name);
        const TemporaryDirectory directory;
        behaviour.check([&] { return openSqliteStore(directory.path() / "samples.sqlite"); });
    }
}

TEST(SqliteStore, LeavesANewerOneAndWhatIsNoneAlone) {
    const TemporaryDirectory directory;
    const auto file = directory.path() / "samples.sqlite";
    openSqliteStore(file);
    sqlite3* database = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(database, "PRAGMA user_version = 2", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(database);
    EXPECT_THROW(openSqliteStore(file), StoreUnavailable);
    test::writeFile(file, std::string(10'000, 'x'));
    EXPECT_THROW(openSqliteStore(file), StoreUnavailable);
    EXPECT_THROW(openSqliteStore(directory.path() / "absent" / "samples.sqlite"), StoreUnavailable);
    EXPECT_THROW(openStore("mysql://localhost"), StoreUnavailable);
}

}  // namespace tarvex::collector
