#pragma once

#include <string>
#include <vector>

namespace simulated_study {

/// What a process wrote to its standard output, and how it ended.
struct Ended {
    std::string output;
    int status = 0;  ///< as of `waitpid`
};

/// Runs this program once more, with these arguments, and waits for its end. Throws where it cannot be started.
/// Thread-safe.
Ended runMyself(const std::vector<std::string>& arguments);

}  // namespace simulated_study
