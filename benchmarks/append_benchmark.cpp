// A sample, from the tick to the durable record.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "benchmark_store.h"
#include "platform/platform.h"
#include "sensors/ambient_light_tracking.h"
#include "storage/persistence_controller.h"

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
BENCHMARK(appendBareInsert)->Name("append/bare_insert")->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(appendRawWrite)->Name("append/raw_write")->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace

}  // namespace tarvex::benchmarks
