#include "collector/research/problems.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <map>
#include <optional>
#include <tuple>

namespace tarvex::collector {
namespace {

constexpr double secondsOfDay = 86'400;

std::string counted(double count, const std::string& noun) {
    const std::string digits = std::to_string(static_cast<std::int64_t>(count));
    std::string text;
    for (std::size_t place = 0; place < digits.size(); ++place) {
        if (place > 0 && (digits.size() - place) % 3 == 0) text += ',';
        text += digits[place];
    }
    return text + " " + noun + (digits == "1" ? "" : "s");
}

std::string dateOf(std::int64_t day) {
    const std::chrono::year_month_day date{std::chrono::sys_days(std::chrono::days(day))};
    constexpr std::array months{"Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return std::to_string(static_cast<unsigned>(date.day())) + " " +
           months.at(static_cast<unsigned>(date.month()) - 1) + " " + std::to_string(static_cast<int>(date.year()));
}

std::string shortly(double value) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.4g", value);
    return text.data();
}

std::string durationOf(double seconds) {
    if (seconds >= 2 * secondsOfDay) return counted(std::round(seconds / secondsOfDay), "day");
    if (seconds >= 2 * 3'600) return counted(std::round(seconds / 3'600), "hour");
    return counted(std::round(seconds / 60), "minute");
}

/// Days of one kind.
struct Found {
    int days = 0;
    std::int64_t last = 0;
    double value = 0;  ///< of the last day

    void add(std::int64_t day, double seen) {
        ++days;
        if (days > 1 && day < last) return;
        last = day;
        value = seen;
    }
    std::string when() const { return counted(days, "day") + ", last on " + dateOf(last); }
};

/// What the days of one participant show.
struct Days {
    std::optional<std::int64_t> newest;  ///< with samples
    Found dark;
    Found stuck;
    Found tooNear;
    Found tooFar;
};

using DaysOfAll = std::map<std::string, Days>;

DaysOfAll summarise(const std::vector<DaySummary>& days, std::int64_t today, const ProblemLimits& limits) {
    DaysOfAll all;
    for (const DaySummary& day : days) {
        if (day.samples == 0) continue;
        Days& own = all[day.participant];
        own.newest = std::max(own.newest.value_or(day.day), day.day);
        if (day.signal == Signal::distance) {
            if (day.least < limits.nearest) own.tooNear.add(day.day, day.least);
            if (day.greatest > limits.farthest) own.tooFar.add(day.day, day.greatest);
        } else if (day.day < today && day.samples >= limits.fewSamples && day.least == day.greatest) {
            (day.greatest == 0 ? own.dark : own.stuck).add(day.day, day.greatest);
        }
    }
    return all;
}

/// Collects the problems of one participant.
class Examination {
public:
    Examination(const Participant& participant, const ProblemLimits& limits, std::vector<Problem>& problems)
        : participant_(participant), limits_(limits), problems_(problems) {}

    void lookAtContact(double now, const Days& days, int dayCount) {
        const double silence = now - participant_.lastContact;
        const auto lastDay = static_cast<std::int64_t>(std::floor(participant_.lastContact / secondsOfDay));
        if (silence >= limits_.silence)
            add(Problem::Severity::error, Problem::Kind::silent, silence,
                "Nothing has come for " + counted(silence / secondsOfDay, "day") + "; the last contact was on " +
                    dateOf(lastDay) + ".");
        else if (!days.newest)
            add(Problem::Severity::error, Problem::Kind::nothingMeasured, dayCount * secondsOfDay,
                "Is in contact, but sent no sample of the last " + counted(dayCount, "day") + ".");
        else
            lookAtNewest(now - secondsOfDay * static_cast<double>(*days.newest + 1), *days.newest);
    }

    void lookAtLight(const Days& days) {
        if (days.dark.days > 0)
            add(Problem::Severity::error, Problem::Kind::lightIsZero, days.dark.days,
                "The light was 0 lux all day on " + days.dark.when() + ": the sensor is covered or broken.");
        if (days.stuck.days > 0)
            add(Problem::Severity::error, Problem::Kind::lightIsStuck, days.stuck.days,
                "The light stood still at " + shortly(days.stuck.value) + " lux all day on " + days.stuck.when() +
                    ": the sensor is stuck.");
    }

    void lookAtDistances(const Days& days) {
        if (days.tooNear.days > 0)
            add(Problem::Severity::warning, Problem::Kind::impossibleDistance, days.tooNear.days,
                "An eye was " + shortly(days.tooNear.value) + " cm away, nearer than any face, on " +
                    days.tooNear.when() + ".");
        if (days.tooFar.days > 0)
            add(Problem::Severity::warning, Problem::Kind::impossibleDistance, days.tooFar.days,
                "An eye was " + shortly(days.tooFar.value) + " cm away, farther than any face, on " +
                    days.tooFar.when() + ".");
    }

    void lookAtClock() {
        const double skew = participant_.clockSkew;
        if (skew > limits_.clockSkew)
            add(Problem::Severity::error, Problem::Kind::clockIsAhead, skew,
                "The clock is " + durationOf(skew) + " ahead: the times of the samples are wrong.");
        if (skew < -limits_.clockSkew && !lacksNewSamples_)
            add(Problem::Severity::warning, Problem::Kind::clockIsBehind, -skew,
                "The newest sample was " + durationOf(-skew) +
                    " old when it came: the clock is behind, or nothing was measured in between.");
    }

    void lookAtCounts() {
        const auto unreadable = static_cast<double>(participant_.unreadable);
        const auto repeats = static_cast<double>(participant_.repeats);
        if (unreadable > 0)
            add(Problem::Severity::warning, Problem::Kind::unreadable, unreadable,
                counted(unreadable, "record") + " could not be read.");
        if (repeats > 0)
            add(Problem::Severity::information, Problem::Kind::repeats, repeats,
                counted(repeats, "sample") + " came again and " + (repeats == 1 ? "was" : "were") +
                    " dropped; nothing is lost.");
    }

private:
    void lookAtNewest(double age, std::int64_t day) {
        lacksNewSamples_ = age >= limits_.silence;
        if (lacksNewSamples_)
            add(Problem::Severity::error, Problem::Kind::nothingMeasured, age,
                "Is in contact, but the newest sample is of " + dateOf(day) +
                    ": nothing was measured since, or the clock is behind.");
    }

    void add(Problem::Severity severity, Problem::Kind kind, double extent, std::string sentence) {
        problems_.push_back({.severity = severity,
                             .kind = kind,
                             .participant = participant_.identifier,
                             .sentence = std::move(sentence),
                             .extent = extent});
    }

    const Participant& participant_;
    const ProblemLimits& limits_;
    std::vector<Problem>& problems_;
    bool lacksNewSamples_ = false;  ///< has been said
};

}  // namespace

std::vector<Problem> findProblems(const std::vector<Participant>& participants, const std::vector<DaySummary>& days,
                                  int dayCount, double now, const ProblemLimits& limits) {
    const DaysOfAll daysOfAll = summarise(days, static_cast<std::int64_t>(std::floor(now / secondsOfDay)), limits);
    std::vector<Problem> problems;
    for (const Participant& participant : participants) {
        if (!participant.isEnrolled) continue;
        const auto found = daysOfAll.find(participant.identifier);
        const Days own = found == daysOfAll.end() ? Days() : found->second;
        Examination examination(participant, limits, problems);
        examination.lookAtContact(now, own, dayCount);
        examination.lookAtLight(own);
        examination.lookAtDistances(own);
        examination.lookAtClock();
        examination.lookAtCounts();
    }
    std::ranges::sort(problems, [](const Problem& one, const Problem& other) {
        return std::tie(other.severity, one.kind, other.extent, one.participant) <
               std::tie(one.severity, other.kind, one.extent, other.participant);
    });
    return problems;
}

}  // namespace tarvex::collector
