// The upload document of a million records.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <charconv>

#include "benchmark_memory.h"
#include "benchmark_store.h"
#include "client/sender.h"
#include "storage/persistence_controller.h"
#include "tarvex/platform/platform.h"

namespace tarvex::benchmarks {

namespace {

// Uses as much memory as the document and gives it back. The host of a virtual machine may have taken unused
// memory: without this, the next figure would measure how fast it is given back.
void warmMemory() {
    constexpr std::size_t amount = std::size_t{256} << 20U;
    platform::ByteBuffer buffer;
    buffer.reserve(amount);
    std::ranges::fill(buffer.spare(amount), '\1');
    benchmark::DoNotOptimize(buffer.data());
    benchmark::ClobberMemory();
}

void documentTarvex(benchmark::State& state) {
    BenchmarkDirectory directory;
    directory.takeManyRecords();
    const auto platform = platform::Platform::makeLinux({.dataDirectory = directory.path()});
    PersistenceController store(*platform);
    store.countTrackingData();
    warmMemory();
    for (auto _ : state) {
        const std::int64_t before = residentMemory();
        resetPeakMemory();
        const auto document = store.loadTrackingData([&platform] { return sender(*platform); });
        if (!document) return state.SkipWithError("no document");
        state.counters["megabytes"] = static_cast<double>(document->size()) / 1e6;
        state.counters["memory"] = static_cast<double>(peakMemory() - before) / static_cast<double>(document->size());
    }
}

// The floor: stepping, copying and framing without any validation.
void documentCopyAndFraming(benchmark::State& state) {
    BenchmarkDirectory directory;
    directory.takeManyRecords();
    const Database database = openByHand(directory.store());
    warmMemory();
    for (auto _ : state) {
        platform::ByteBuffer document;
        document.reserve(std::size_t{256} << 20U);
        const Statement select = prepare(database.get(), "SELECT timestamp, type, data FROM DataEntry ORDER BY seq");
        while (sqlite3_step(select.get()) == SQLITE_ROW) {
            document.append(R"({"data":)");
            document.append({static_cast<const char*>(sqlite3_column_blob(select.get(), 2)),
                             static_cast<std::size_t>(sqlite3_column_bytes(select.get(), 2))});
            document.append(R"(,"type":")");
            document.append({reinterpret_cast<const char*>(sqlite3_column_text(select.get(), 1)),
                             static_cast<std::size_t>(sqlite3_column_bytes(select.get(), 1))});
            document.append(R"(","timestamp":)");
            const auto room = document.spare(32);
            const auto end = std::to_chars(room.data(), room.data() + 32, sqlite3_column_double(select.get(), 0)).ptr;
            document.extend(static_cast<std::size_t>(end - room.data()));
            document.append("},");
        }
        benchmark::DoNotOptimize(document.data());
    }
}

void documentSqliteJson(benchmark::State& state) {
    BenchmarkDirectory directory;
    directory.takeManyRecords();
    const Database database = openByHand(directory.store());
    warmMemory();
    for (auto _ : state) {
        const Statement select =
            prepare(database.get(),
                    "SELECT json_object('userId', 'u', 'trackingData', json_group_array(json_object('data', json(data),"
                    " 'type', type, 'timestamp', timestamp))) FROM DataEntry");
        if (sqlite3_step(select.get()) != SQLITE_ROW) return state.SkipWithError("no document");
        benchmark::DoNotOptimize(sqlite3_column_text(select.get(), 0));
    }
}

BENCHMARK(documentTarvex)->Name("document/tarvex")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(documentCopyAndFraming)->Name("document/copy_and_framing")->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(documentSqliteJson)->Name("document/sqlite_json")->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

}  // namespace tarvex::benchmarks
