// Start, share and count through the GObject layer, beside the same calls in C++: one client, one store, one process.

#include <benchmark/benchmark.h>
#include <tarvex-testing-glib.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "tarvex/client.h"
#include "tarvex/data_entry.h"
#include "tarvex/platform/platform.h"

namespace tarvex::benchmarks {

namespace {

constexpr int records = 100;
constexpr std::string_view sample = R"({"channel0":1013.25,"channel1":844.5,"channel2":0.5,"channel3":512,"lux":250})";

/// A store with some samples, in a directory that is removed at the end.
class Store {
public:
    Store() {
        std::string name = std::filesystem::current_path() / "tarvex-benchmark-XXXXXX";
        if (mkdtemp(name.data()) == nullptr) std::exit(1);
        path_ = name;
        const auto platform = platform::Platform::makeLinux({.dataDirectory = path_});
        platform->userDefaults().setValueForKey(true, "hasConsentedToTrackAmbientLight");
        const auto container = platform->objectStore().makeContainer("TrackingDataContainer");
        if (!container->loadPersistentStores()) std::exit(1);
        const auto bytes = std::as_bytes(std::span(sample));
        for (int i = 0; i < records; ++i) {
            DataEntry entry(container->viewContext());
            entry.setId(Uuid::random());
            entry.setTimestamp(i);
            entry.setType("ambient_light");
            entry.setData(DataEntry::Bytes(bytes.begin(), bytes.end()));
        }
        if (!container->viewContext().save()) std::exit(1);
    }
    ~Store() { std::filesystem::remove_all(path_); }
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

void startAndStopInC(benchmark::State& state) {
    TarvexClient* client = tarvex_client_get_default();
    for (auto _ : state) {
        if (tarvex_client_start(client, TARVEX_READER_AMBIENT_LIGHT, 5, nullptr, nullptr) == FALSE) std::exit(1);
        tarvex_client_stop(client, TARVEX_READER_AMBIENT_LIGHT);
    }
}

void startAndStop(benchmark::State& state) {
    Client& client = Client::shared();
    const auto reader = DataReader::ambientLight(5);
    for (auto _ : state) {
        client.startTracking({reader}, nullptr, [](const Client::Result& result, const auto& /*reader*/) {
            if (!result) std::exit(1);
        });
        client.stopTracking(reader);
    }
}

void countInC(benchmark::State& state) {
    for (auto _ : state)
        if (tarvex_client_get_count(tarvex_client_get_default()) != records) std::exit(1);
}

void count(benchmark::State& state) {
    for (auto _ : state)
        if (Client::shared().trackingDataCount() != records) std::exit(1);
}

/// What earlier benchmarks have left to the main loop is none of the next one's.
void emptyMainLoop() {
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
}

void shareInC(benchmark::State& state) {
    emptyMainLoop();
    for (auto _ : state) {
        bool isOver = false;
        const auto over = [](GObject* client, GAsyncResult* result, gpointer flag) {
            if (tarvex_client_share_finish(TARVEX_CLIENT(client), result, nullptr) == FALSE) std::exit(1);
            *static_cast<bool*>(flag) = true;
        };
        tarvex_client_share_async(tarvex_client_get_default(), FALSE, over, &isOver);
        while (!isOver)
            g_main_context_iteration(nullptr, TRUE);
    }
}

// As a host in C++ takes the outcome on its main loop.
void share(benchmark::State& state) {
    auto& loop = platform::Platform::current().mainRunLoop();
    emptyMainLoop();
    for (auto _ : state) {
        bool isOver = false;
        Client::shared().shareTrackingData(false, [&](const Client::Result& result) {
            if (!result) std::exit(1);
            loop.perform([&isOver] { isOver = true; });
        });
        while (!isOver)
            g_main_context_iteration(nullptr, TRUE);
    }
}

BENCHMARK(startAndStopInC)->Name("gobject_start/layer");
BENCHMARK(startAndStop)->Name("gobject_start/tarvex");
BENCHMARK(countInC)->Name("gobject_count/layer");
BENCHMARK(count)->Name("gobject_count/tarvex");
// The documents stay in the backend's memory: so many and no more.
BENCHMARK(shareInC)->Name("gobject_share/layer")->UseRealTime()->Iterations(500);
BENCHMARK(share)->Name("gobject_share/tarvex")->UseRealTime()->Iterations(500);

}  // namespace

}  // namespace tarvex::benchmarks

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    const tarvex::benchmarks::Store store;
    TarvexClient* client = tarvex_client_get_default();
    g_object_set(client, "application-id", "org.tarvex.Benchmark", "data-directory", store.path().c_str(), nullptr);
    g_object_unref(tarvex_testing_light_sensor_new(client));
    g_object_unref(tarvex_testing_backend_new(client));
    if (tarvex_client_get_count(client) != tarvex::benchmarks::records) return 1;
    benchmark::RunSpecifiedBenchmarks();
}
