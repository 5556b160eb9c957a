#include "benchmark_store.h"

#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>

#include "storage/persistence_controller.h"
#include "tarvex/platform/platform.h"

namespace tarvex::benchmarks {

namespace {

void check(sqlite3* database, int code) {
    if (code == SQLITE_OK) return;
    std::cerr << sqlite3_errmsg(database) << '\n';
    std::exit(1);
}

// The store that the library makes, filled without its syncs.
const BenchmarkDirectory& manyRecordsStore() {
    static const BenchmarkDirectory& directory = *[] {
        auto* made = new BenchmarkDirectory;
        const auto platform = platform::Platform::makeLinux({.dataDirectory = made->path()});
        PersistenceController(*platform).saveChanges();
        const Database database = openByHand(made->store());
        execute(database.get(), "PRAGMA synchronous=OFF");
        execute(database.get(), "WITH RECURSIVE n(i) AS (SELECT 0 UNION ALL SELECT i + 1 FROM n WHERE i + 1 < " +
                                    std::to_string(manyRecords) +
                                    ") INSERT INTO DataEntry(id, timestamp, type, data) SELECT randomblob(16), "
                                    "1700000000.123 + i * 1.0000123,"
                                    " 'ambient_light', CAST('" +
                                    std::string(sampleValues) + "' AS BLOB) FROM n");
        execute(database.get(), "PRAGMA wal_checkpoint(TRUNCATE)");
        std::atexit([] { std::filesystem::remove_all(manyRecordsStore().path()); });
        return made;
    }();
    return directory;
}

}  // namespace

Database openByHand(const std::filesystem::path& file) {
    sqlite3* database = nullptr;
    check(database, sqlite3_open(file.c_str(), &database));
    execute(database, "PRAGMA journal_mode=WAL");
    execute(database, "PRAGMA synchronous=FULL");
    return Database(database);
}

void execute(sqlite3* database, const std::string& sql) {
    check(database, sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr));
}

Statement prepare(sqlite3* database, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    check(database, sqlite3_prepare_v2(database, sql.c_str(), -1, &statement, nullptr));
    return Statement(statement);
}

BenchmarkDirectory::BenchmarkDirectory() {
    std::string name = std::filesystem::current_path() / "tarvex-benchmark-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) std::exit(1);
    path_ = name;
}

BenchmarkDirectory::~BenchmarkDirectory() {
    std::filesystem::remove_all(path_);
}

void BenchmarkDirectory::takeManyRecords() {
    for (const char* suffix : {"-wal", "-shm"})
        std::filesystem::remove(store().string() + suffix);
    std::filesystem::copy_file(manyRecordsStore().store(), store(), std::filesystem::copy_options::overwrite_existing);
    sync();  // else the copy's own write-back is measured as well
}

}  // namespace tarvex::benchmarks
