// A sample, from the tick to the durable record.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "benchmark_store.h"
#include "sensors/ambient_light_tracking.h"
#include "storage/persistence_controller.h"
#include "tarvex/platform/platform.h"

namespace tarvex::benchmarks {

namespace {

void appendTarvex(benchmark::State& state, bool many) {
    BenchmarkDirectory directory;
    if (many) directory.takeManyRecords();
    const auto platform = platform::Platform::makeLinux({.dataDirectory = directory.path()});
    PersistenceController store(*platform);
    AmbientLightTracking tracking(store);
    tracking.recordSample();
    for (auto _ : state)
        tracking.recordSample();
}

/// Every sample is refused for as long as the lock is held, and none may be lost.
void appendLocked(benchmark::State& state) {
    const BenchmarkDirectory directory;
    const auto platform = platform::Platform::makeLinux({.dataDirectory = directory.path()});
    PersistenceController store(*platform);
    AmbientLightTracking tracking(store);
    tracking.recordSample();
    Database other = openByHand(directory.store());
    execute(other.get(), "BEGIN IMMEDIATE");
    std::chrono::duration<double, std::milli> longest{0};
    std::int64_t ticks = 1;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        tracking.recordSample();
        longest = std::max(longest, decltype(longest)(std::chrono::steady_clock::now() - start));
        ++ticks;
    }
    other.reset();
    store.saveChanges();
    const Database database = openByHand(directory.store());
    const Statement count = prepare(database.get(), "SELECT count(*) FROM DataEntry");
    if (sqlite3_step(count.get()) != SQLITE_ROW || sqlite3_column_int64(count.get(), 0) != ticks)
        state.SkipWithError("a sample was lost");
    state.counters["longest_ms"] = longest.count();
}

void appendBareInsert(benchmark::State& state) {
    const BenchmarkDirectory directory;
    const Database database = openByHand(directory.store());
    execute(database.get(),
            "CREATE TABLE DataEntry(seq INTEGER PRIMARY KEY, id BLOB, timestamp REAL, type TEXT, data BLOB)");
    const Statement insert =
        prepare(database.get(), "INSERT INTO DataEntry(id, timestamp, type, data) VALUES(?, ?, ?, ?)");
    const char id[16] = {};
    for (auto _ : state) {
        sqlite3_bind_blob(insert.get(), 1, id, sizeof id, SQLITE_STATIC);
        sqlite3_bind_double(insert.get(), 2, 1700000000.25);
        sqlite3_bind_text(insert.get(), 3, "ambient_light", -1, SQLITE_STATIC);
        sqlite3_bind_blob(insert.get(), 4, sampleValues, static_cast<int>(std::strlen(sampleValues)), SQLITE_STATIC);
        if (sqlite3_step(insert.get()) != SQLITE_DONE) state.SkipWithError("insert failed");
        sqlite3_reset(insert.get());
    }
}

void appendRawWrite(benchmark::State& state) {
    const BenchmarkDirectory directory;
    const int file = open((directory.path() / "log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    for (auto _ : state) {
        if (write(file, sampleValues, std::strlen(sampleValues)) < 0 || fdatasync(file) != 0)
            state.SkipWithError("write failed");
    }
    close(file);
}

BENCHMARK_CAPTURE(appendTarvex, empty, false)->Name("append/tarvex")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(appendTarvex, many, true)
    ->Name("append/tarvex_1000000")
    ->UseRealTime()
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(appendLocked)->Name("append/locked")->Iterations(30)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(appendBareInsert)->Name("append/bare_insert")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(appendRawWrite)->Name("append/raw_write")->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

}  // namespace tarvex::benchmarks
