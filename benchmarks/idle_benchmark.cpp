// How often a host that samples light once a second wakes up.

#include <benchmark/benchmark.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "benchmark_store.h"
#include "platform/platform.h"
#include "tarvex/client.h"

namespace tarvex::benchmarks {

namespace {

constexpr int seconds = 10;

// How often a thread of the process gave the processor back because it had nothing to do, or waited for the disk.
double voluntarySwitches() {
    double sum = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with("voluntary_ctxt_switches:")) sum += std::stod(line.substr(line.find(':') + 1));
        }
    }
    return sum;
}

// In a process of its own; `sample`: with a session, else a bare loop with one timer.
double switchesASecond(const std::filesystem::path& directory, bool sample) {
    int ends[2];
    if (pipe(ends) != 0) return -1;
    const pid_t child = fork();
    if (child == 0) {
        auto made = platform::Platform::makeLinux({.dataDirectory = directory, .sensorRoot = directory / "sensors"});
        if (!platform::Platform::install(std::move(made))) _exit(1);
        platform::Platform& platform = platform::Platform::current();
        platform.userDefaults().setValueForKey(true, "hasConsentedToTrackAmbientLight");
        if (sample) Client::shared().startTracking({DataReader::ambientLight(1)}, nullptr, {});
        double begin = 0;
        const auto from = platform.timerScheduler().scheduledTimer(0.5, [&] {
            if (begin == 0) begin = voluntarySwitches();
        });
        const auto until = platform.timerScheduler().scheduledTimer(0.5 + seconds, [&] {
            const double switches = (voluntarySwitches() - begin) / seconds;
            _exit(write(ends[1], &switches, sizeof switches) == sizeof switches ? 0 : 1);
        });
        platform.mainRunLoop().run();
    }
    double switches = -1;
    const bool told = read(ends[0], &switches, sizeof switches) == sizeof switches;
    waitpid(child, nullptr, 0);
    close(ends[0]);
    close(ends[1]);
    return told ? switches : -1;
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
