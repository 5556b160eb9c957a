#pragma once

#include <random>

#include "accuracy/error_summary.h"

namespace tarvex::benchmarks {

/// The error of the pose solver alone for heads turned up to 30° to the side and 20° up or down, 25 to 80 cm away:
/// points of faces that differ from the mean face by 2 mm, seen with 0.7 pixels of noise. Relative to each head's own
/// reading when it faces the camera at 50 cm.
ErrorSummary posedHeads(std::mt19937& random);

}  // namespace tarvex::benchmarks
