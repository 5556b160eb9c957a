#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <vector>

#include "participant_report.h"

namespace simulated_study {

struct Study {
    std::filesystem::path collectorDirectory;
    int participants = 24;
    int days = 21;
    std::uint64_t seed = 1;
    double ends = 0;  ///< its last moment, in seconds since 1970
};

/// Runs every participant in a process of its own, as many at a time as there are processors, each with a data
/// directory of its own, which is removed afterwards. The result is in the order of the participants.
///
/// `finished` is called for each that has ended, with the reports so far, one at a time, on any thread. Throws where
/// there is no temporary directory.
std::vector<Report> run(const Study& study, const std::function<void(const std::vector<Report>&)>& finished);

}  // namespace simulated_study
