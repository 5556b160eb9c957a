#include "habits.h"

#include <array>
#include <cmath>
#include <cstdio>

#include "noise.h"

namespace simulated_study {

namespace {

double toQuarterHours(double hours) {
    return std::round(hours * 4) / 4;
}

std::string timeOfDay(double hour) {
    const int minutes = static_cast<int>(std::lround(hour * 60)) % (24 * 60);
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%d:%02d", minutes / 60, minutes % 60);
    return text.data();
}

std::string inWords(Workplace workplace) {
    switch (workplace) {
        case Workplace::office:
            return "office";
        case Workplace::windowDesk:
            return "desk at a window";
        case Workplace::outdoors:
            return "outdoors";
        case Workplace::home:
            return "at home";
    }
    return {};
}

}  // namespace

Habits habitsOf(int participant, std::uint64_t seed) {
    constexpr std::array places{Workplace::office, Workplace::windowDesk, Workplace::outdoors,
                                Workplace::home,   Workplace::office,     Workplace::windowDesk};
    const Noise noise(seed, static_cast<std::uint64_t>(participant));
    const double wakes = toQuarterHours(noise.at(1, 5.5, 8.5));
    const double workBegins = toQuarterHours(wakes + noise.at(2, 1.25, 2.25));
    return {.workplace = places[static_cast<std::size_t>(participant - 1) % places.size()],
            .worksOnWeekends = noise.at(3) < 0.2,
            .screenInTheEvening = noise.at(4) < 0.5,
            .wakes = wakes,
            .sleeps = toQuarterHours(wakes + noise.at(5, 15.5, 17)),
            .workBegins = workBegins,
            .workEnds = workBegins + toQuarterHours(noise.at(6, 7.5, 9)),
            .eyeDistance = noise.at(7, 42, 62),
            .lamp = noise.at(8, 70, 260),
            .daysBetweenPosts = noise.at(9) < 0.6 ? 1 : 2,
            .hourOfPosts = noise.at(10, 8, 22)};
}

Fault faultOf(int participant) {
    switch (participant) {
        case 2:
            return Fault::stuckSensor;
        case 5:
            return Fault::clockAhead;
        case 11:
            return Fault::stopsEarly;
        case 17:
            return Fault::neverDeletes;
        default:
            return Fault::none;
    }
}

std::string inWords(const Habits& habits) {
    return inWords(habits.workplace) + ", awake " + timeOfDay(habits.wakes) + " to " + timeOfDay(habits.sleeps) +
           (habits.worksOnWeekends ? ", works on weekends" : "") +
           (habits.screenInTheEvening ? ", screen in the evening" : "");
}

std::string inWords(Fault fault) {
    switch (fault) {
        case Fault::none:
            return {};
        case Fault::stuckSensor:
            return "light sensor is stuck";
        case Fault::clockAhead:
            return "clock is a day ahead";
        case Fault::stopsEarly:
            return "stopped early";
        case Fault::neverDeletes:
            return "each post repeats all before";
    }
    return {};
}

}  // namespace simulated_study
