#pragma once

#include <iosfwd>
#include <vector>

#include "study.h"

namespace simulated_study {

/// A line for each participant: its identifier, habits, samples, posts and fault, or why it failed; then the sums.
void writeTable(std::ostream& output, const Study& study, const std::vector<Report>& reports);

}  // namespace simulated_study
