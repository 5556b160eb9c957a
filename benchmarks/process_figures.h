#pragma once

#include <functional>

namespace tarvex::benchmarks {

/// What `work` returns in a process of its own, which then ends; negative when that failed.
double figureOfChild(const std::function<double()>& work);

/// How often a thread of the process gave the processor back because it had nothing to do, or waited for the disk.
double voluntarySwitches();

}  // namespace tarvex::benchmarks
