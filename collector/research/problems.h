#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "collector/store/store.h"

namespace tarvex::collector {

/// What a researcher should see to.
struct Problem {
    enum class Severity : std::uint8_t { information, warning, error };
    enum class Kind : std::uint8_t {
        silent,
        nothingMeasured,
        lightIsZero,
        lightIsStuck,
        clockIsAhead,
        clockIsBehind,
        impossibleDistance,
        unreadable,
        repeats
    };

    Severity severity;
    Kind kind;
    std::string participant;
    std::string sentence;  ///< plain, whole
    double extent;         ///< of two of a kind, the greater one is the worse
};

/// What counts as one.
struct ProblemLimits {
    double silence = 2 * 86'400.0;  ///< seconds without contact, or without a sample
    double clockSkew = 600;         ///< seconds
    double nearest = 10;            ///< centimetres
    double farthest = 200;          ///< centimetres
    std::uint64_t fewSamples = 20;  ///< a day with less of them says nothing about a sensor
};

/// The problems of enrolled participants, the worst first. `days`: of the last `dayCount` days.
std::vector<Problem> findProblems(const std::vector<Participant>& participants, const std::vector<DaySummary>& days,
                                  int dayCount, double now, const ProblemLimits& limits = {});

}  // namespace tarvex::collector
