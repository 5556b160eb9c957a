// How often a host that samples light once a second wakes up.

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "benchmark_store.h"
#include "process_figures.h"
#include "tarvex/client.h"
#include "tarvex/platform/platform.h"

namespace tarvex::benchmarks {

namespace {

constexpr int seconds = 10;

// In a process of its own; `sample`: with a session, else a bare loop with one timer.
double switchesASecond(const std::filesystem::path& directory, bool sample) {
    return figureOfChild([&] {
        auto made = platform::Platform::makeLinux({.dataDirectory = directory, .sensorRoot = directory / "sensors"});
        if (!platform::Platform::install(std::move(made))) _exit(1);
        platform::Platform& platform = platform::Platform::current();
        platform.userDefaults().setValueForKey(true, "hasConsentedToTrackAmbientLight");
        if (sample) Client::shared().startTracking({DataReader::ambientLight(1)}, nullptr, {});
        double begin = 0;
        double switches = 0;
        const auto from = platform.timerScheduler().scheduledTimer(0.5, [&] {
            if (begin == 0) begin = voluntarySwitches();
        });
        const auto until = platform.timerScheduler().scheduledTimer(0.5 + seconds, [&] {
            switches = (voluntarySwitches() - begin) / seconds;
            platform.mainRunLoop().stop();
        });
        platform.mainRunLoop().run();
        return switches;
    });
}

void idle(benchmark::State& state) {
    const BenchmarkDirectory directory;
    std::filesystem::create_directories(directory.path() / "sensors/iio:device0");
    std::ofstream(directory.path() / "sensors/iio:device0/in_illuminance_input") << "100\n";
    for (auto _ : state) {
        const double bare = switchesASecond(directory.path(), false);
        const double sampling = switchesASecond(directory.path(), true);
        if (bare < 0 || sampling < 0) return state.SkipWithError("the child failed");
        // The benchmark's own half-second timer is in both.
        state.counters["switches_per_second"] = sampling - bare;
    }
}

BENCHMARK(idle)->Name("idle/tarvex")->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace

}  // namespace tarvex::benchmarks
