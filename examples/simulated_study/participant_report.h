#pragma once

#include <expected>
#include <iosfwd>
#include <string>

#include "participant.h"

namespace simulated_study {

/// What a participant's process says about it, or why it failed.
using Report = std::expected<Outcome, std::string>;

/// Writes the report as one line, for `readReport`.
void writeReport(std::ostream& output, const Report& report);

/// Takes the report out of everything that a process has written, and puts the other lines into `rest`. Text without a
/// report is a failure.
Report readReport(const std::string& output, std::ostream& rest);

}  // namespace simulated_study
