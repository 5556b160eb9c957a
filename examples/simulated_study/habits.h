#pragma once

#include <cstdint>
#include <string>

namespace simulated_study {

enum class Workplace : std::uint8_t { office, windowDesk, outdoors, home };

/// What is wrong with a participant's device or host.
enum class Fault : std::uint8_t {
    none,
    stuckSensor,   ///< the sensor reports once and never again
    clockAhead,    ///< the clock of the device is a day ahead
    stopsEarly,    ///< takes part for nine days of twenty-one
    neverDeletes,  ///< deletes nothing that was posted, so that the next post repeats it
};

/// How a participant lives. Hours are those of the local day.
struct Habits {
    Workplace workplace = Workplace::office;
    bool worksOnWeekends = false;
    bool screenInTheEvening = false;
    double wakes = 7;
    double sleeps = 23;  ///< above 24 where the day ends after midnight
    double workBegins = 9;
    double workEnds = 17;
    double eyeDistance = 50;  ///< from the screen on a desk, in centimetres
    double lamp = 150;        ///< at home, in lux
    int daysBetweenPosts = 1;
    double hourOfPosts = 20;

    bool isAwake(double hour) const { return (hour >= wakes && hour < sleeps) || hour + 24 < sleeps; }
};

/// Participants count from 1; their habits follow from the seed.
Habits habitsOf(int participant, std::uint64_t seed);

/// Participants 2, 5, 11 and 17 have one.
Fault faultOf(int participant);

/// Such as "desk at a window, awake 6:30 to 23:15, screen in the evening".
std::string inWords(const Habits& habits);

/// Empty for none.
std::string inWords(Fault fault);

}  // namespace simulated_study
