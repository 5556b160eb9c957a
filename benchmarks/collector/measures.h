#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <ctime>
#include <functional>
#include <vector>

// What the benchmarks of the collector measure with.
namespace tarvex::benchmarks {

/// Seconds of processor time, and of the clock.
struct Cost {
    double processor;
    double clock;
};

inline double secondsOf(clockid_t which) {
    timespec time{};
    clock_gettime(which, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

inline Cost costOf(const std::function<void()>& work) {
    const double processor = secondsOf(CLOCK_PROCESS_CPUTIME_ID);
    const double clock = secondsOf(CLOCK_MONOTONIC);
    work();
    return {.processor = secondsOf(CLOCK_PROCESS_CPUTIME_ID) - processor, .clock = secondsOf(CLOCK_MONOTONIC) - clock};
}

inline double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

/// Prints a row of the table, of the figure in the middle of those of all rounds.
template <typename Round>
void printRow(const std::vector<Round>& rounds, const char* what, double Round::* figure, const char* target) {
    std::vector<double> values;
    for (const Round& round : rounds)
        values.push_back(round.*figure);
    std::printf("| %s | %.2f × | %s |\n", what, median(values), target);
}

}  // namespace tarvex::benchmarks
