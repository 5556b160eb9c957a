#pragma once

#include <cstdint>
#include <vector>

#include "collector/store/document.h"
#include "collector/store/temporary_file.h"

// The documents that the benchmarks of the collector post.
namespace tarvex::benchmarks {

inline constexpr int million = 1'000'000;

/// Writes a document of light samples, of these seconds after `begin`, in this order.
void write(collector::TemporaryFile& file, const std::vector<int>& order, double begin);

/// From 0 on.
std::vector<int> seconds(int count);

/// A body that is unknown as long as the number is.
collector::Body bodyOf(const collector::TemporaryFile& file, std::uint8_t number);

}  // namespace tarvex::benchmarks
