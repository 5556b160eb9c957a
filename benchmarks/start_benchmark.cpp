// The first use of the library in a process, with a store that exists: each round in a process of its own.

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <optional>

#include "benchmark_store.h"
#include "process_figures.h"
#include "tarvex/client.h"
#include "tarvex/platform/platform.h"

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

// The same two files, opened and read by the same queries.
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

/// A process that keeps a database locked while this object lives.
class LockingProcess {
public:
    explicit LockingProcess(const std::filesystem::path& file) {
        int ends[2];
        if (pipe(ends) != 0) std::exit(1);
        process_ = fork();
        if (process_ == 0) {
            const Database database = openByHand(file);
            execute(database.get(), "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE; CREATE TABLE held(x)");
            while (write(ends[1], "", 1) == 1)
                pause();
            _exit(1);
        }
        close(ends[1]);
        char ready = 0;
        if (read(ends[0], &ready, 1) != 1) std::exit(1);
        close(ends[0]);
    }
    ~LockingProcess() {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    LockingProcess(const LockingProcess&) = delete;
    LockingProcess& operator=(const LockingProcess&) = delete;

private:
    pid_t process_ = -1;
};

void start(benchmark::State& state, void (*use)(const std::filesystem::path&), bool locked) {
    BenchmarkDirectory directory;
    directory.takeManyRecords();
    secondsInChild([&] { useTarvex(directory.path()); });  // makes the user identifier
    std::optional<LockingProcess> other;
    if (locked) other.emplace(directory.path() / "UserDefaults.sqlite");
    for (auto _ : state) {
        const double seconds = secondsInChild([&] { use(directory.path()); });
        if (seconds < 0) return state.SkipWithError("the child failed");
        state.SetIterationTime(seconds);
    }
}

BENCHMARK_CAPTURE(start, tarvex, useTarvex, false)
    ->Name("start/tarvex")
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(start, locked, useTarvex, true)
    ->Name("start/locked_defaults")
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(start, sqlite, useSqlite, false)
    ->Name("start/sqlite")
    ->UseManualTime()
    ->Iterations(20)
    ->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace tarvex::benchmarks
