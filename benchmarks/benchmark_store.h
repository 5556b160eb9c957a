#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

namespace tarvex::benchmarks {

constexpr std::int64_t manyRecords = 1'000'000;

struct Release {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, Release>;
using Statement = std::unique_ptr<sqlite3_stmt, Release>;

// SQLite as one opens it by hand; a failure ends the program.
Database openByHand(const std::filesystem::path& file);
void execute(sqlite3* database, const std::string& sql);
Statement prepare(sqlite3* database, const std::string& sql);

/// A data directory on the disk that holds the working directory, removed at the end.
class BenchmarkDirectory {
public:
    BenchmarkDirectory();
    ~BenchmarkDirectory();
    BenchmarkDirectory(const BenchmarkDirectory&) = delete;
    BenchmarkDirectory& operator=(const BenchmarkDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }
    std::filesystem::path store() const { return path_ / "TrackingDataContainer.sqlite"; }

    /// Puts a copy of the store with a million light samples here; that one is made once per process.
    void takeManyRecords();

private:
    std::filesystem::path path_;
};

/// The record of one light sample, as the library stores it.
constexpr const char* sampleValues =
    R"({"channel0":1013.25,"channel1":844.5,"channel2":0.10000000149011612,"channel3":512,"lux":250})";

}  // namespace tarvex::benchmarks
