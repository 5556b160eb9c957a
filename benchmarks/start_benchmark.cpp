// The first use of the library in a process, with a store that exists: each round in a process of its own.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <functional>

#include "benchmark_store.h"
#include "platform/platform.h"
#include "process_figures.h"
#include "tarvex/client.h"

namespace tarvex::benchmarks {

namespace {

double secondsInChild(const std::function<void()>& work) {
    return figureOfChild([&] {
        const auto begin = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    });
}

void useTarvex(const std::filesystem::path& directory) {
    if (!platform::Platform::install(platform::Platform::makeLinux({.dataDirectory = directory}))) _exit(1);
    if (Client::shared().trackingDataCount() != manyRecords) _exit(1);
}

// The same two files, opened and asked the same questions.
void useSqlite(const std::filesystem::path& directory) {
    const Database defaults = openByHand(directory / "UserDefaults.sqlite");
    const Statement user = prepare(defaults.get(), "SELECT value FROM user_defaults WHERE key = 'userID'");
    const Database store = openByHand(directory / "TrackingDataContainer.sqlite");
    const Statement insert =
        prepare(store.get(), "INSERT INTO DataEntry(id, timestamp, type, data) VALUES(?, ?, ?, ?)");
    const Statement count =
        prepare(store.get(), "SELECT (SELECT max(seq) FROM DataEntry) - (SELECT min(seq) FROM DataEntry) + 1");
    if (sqlite3_step(user.get()) != SQLITE_ROW || sqlite3_step(count.get()) != SQLITE_ROW) _exit(1);
}

void start(benchmark::State& state, void (*use)(const std::filesystem::path&)) {
    BenchmarkDirectory directory;
    directory.takeManyRecords();
    secondsInChild([&] { useTarvex(directory.path()); });  // makes the user identifier
    for (auto _ : state) {
        const double seconds = secondsInChild([&] { use(directory.path()); });
        if (seconds < 0) return state.SkipWithError("the child failed");
        state.SetIterationTime(seconds);
    }
}

BENCHMARK_CAPTURE(start, tarvex, useTarvex)
    ->Name("start/tarvex")
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(start, sqlite, useSqlite)
    ->Name("start/sqlite")
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace tarvex::benchmarks
