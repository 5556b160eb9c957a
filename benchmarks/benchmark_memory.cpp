#include "benchmark_memory.h"

#include <fstream>
#include <sstream>
#include <string>

namespace tarvex::benchmarks {
namespace {

std::int64_t memoryFigure(const std::string& name) {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        std::int64_t kilobytes = 0;
        if (line.starts_with(name) && std::istringstream(line.substr(name.size() + 1)) >> kilobytes)
            return kilobytes * 1024;
    }
    return 0;
}

}  // namespace

std::int64_t residentMemory() {
    return memoryFigure("VmRSS:");
}

std::int64_t peakMemory() {
    return memoryFigure("VmHWM:");
}

void resetPeakMemory() {
    std::ofstream("/proc/self/clear_refs") << 5;
}

}  // namespace tarvex::benchmarks
