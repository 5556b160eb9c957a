// Deleting and counting a million records.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "benchmark_store.h"
#include "storage/persistence_controller.h"
#include "tarvex/platform/platform.h"

namespace tarvex::benchmarks {

namespace {

double filesWithSamples(const BenchmarkDirectory& directory) {
    double found = 0;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
        std::ifstream file(entry.path(), std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(file), {});
        found +=
            bytes.find("ambient_light") != std::string::npos || bytes.find("channel0") != std::string::npos ? 1 : 0;
    }
    return found;
}

void deleteTarvex(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        BenchmarkDirectory directory;
        directory.takeManyRecords();
        const auto platform = platform::Platform::makeLinux({.dataDirectory = directory.path()});
        PersistenceController store(*platform);
        store.countTrackingData();
        state.ResumeTiming();
        store.deleteAllTrackingData();
        state.PauseTiming();
        state.counters["files_with_samples"] = filesWithSamples(directory);
        state.ResumeTiming();
    }
}

// With the settings that Debian's SQLite comes with.
void deleteDefault(benchmark::State& state) {
    for (auto _ : state) {
        state.PauseTiming();
        BenchmarkDirectory directory;
        directory.takeManyRecords();
        Database database = openByHand(directory.store());
        execute(database.get(), "SELECT count(*) FROM sqlite_schema");
        state.ResumeTiming();
        execute(database.get(), "DELETE FROM DataEntry");
        state.PauseTiming();
        database.reset();
        state.ResumeTiming();
    }
}

void countTarvex(benchmark::State& state) {
    BenchmarkDirectory directory;
    directory.takeManyRecords();
    const auto platform = platform::Platform::makeLinux({.dataDirectory = directory.path()});
    PersistenceController store(*platform);
    for (auto _ : state) {
        if (store.countTrackingData() != manyRecords) return state.SkipWithError("wrong count");
    }
}

void countByScanning(benchmark::State& state) {
    BenchmarkDirectory directory;
    directory.takeManyRecords();
    const Database database = openByHand(directory.store());
    const Statement count = prepare(database.get(), "SELECT count(*) FROM DataEntry");
    for (auto _ : state) {
        if (sqlite3_step(count.get()) != SQLITE_ROW || sqlite3_column_int64(count.get(), 0) != manyRecords)
            return state.SkipWithError("wrong count");
        sqlite3_reset(count.get());
    }
}

BENCHMARK(deleteTarvex)->Name("delete/tarvex")->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(deleteDefault)->Name("delete/default")->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(countTarvex)->Name("count/tarvex")->Unit(benchmark::kMicrosecond);
BENCHMARK(countByScanning)->Name("count/scan")->Unit(benchmark::kMicrosecond);

}  // namespace

}  // namespace tarvex::benchmarks
