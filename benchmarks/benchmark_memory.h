#pragma once

#include <cstdint>

namespace tarvex::benchmarks {

/// The process's resident memory now, and the most since the last reset, in bytes.
std::int64_t residentMemory();
std::int64_t peakMemory();
void resetPeakMemory();

}  // namespace tarvex::benchmarks
