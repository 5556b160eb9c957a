#pragma once

#include <chrono>
#include <filesystem>
#include <optional>

namespace tarvex::benchmarks {

/// The cost of face tracking in a process whose camera is a photograph.
struct SessionFigures {
    double openMemory = 0;       ///< resident bytes more while the first face is reported, its source still open
    double pausedSwitches = 0;   ///< voluntary context switches of the whole process after the pause, the watcher's too
    double pausedProcessor = 0;  ///< milliseconds of processor time of the whole process after the pause
};

/// One measurement, and what the process does in the seconds after its pause. Absent when no face was measured.
std::optional<SessionFigures> photographSession(const std::filesystem::path& models,
                                                const std::filesystem::path& photograph, std::chrono::seconds watched);

}  // namespace tarvex::benchmarks
