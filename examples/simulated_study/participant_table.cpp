#include "participant_table.h"

#include <algorithm>
#include <iomanip>
#include <ostream>

#include "habits.h"

namespace simulated_study {

namespace {

constexpr int identifierWidth = 36;

int widthOfHabits(const Study& study) {
    std::size_t width = 0;
    for (int participant = 1; participant <= study.participants; ++participant)
        width = std::max(width, inWords(habitsOf(participant, study.seed)).size());
    return static_cast<int>(width);
}

}  // namespace

void writeTable(std::ostream& output, const Study& study, const std::vector<Report>& reports) {
    const int habitsWidth = widthOfHabits(study);
    const auto line = [&](const auto& identifier, const auto& habits, const auto& samples, const auto& posts,
                          const std::string& fault) {
        output << std::left << std::setw(identifierWidth) << identifier << "  " << std::setw(habitsWidth) << habits
               << std::right << "  " << std::setw(7) << samples << "  " << std::setw(5) << posts;
        if (!fault.empty()) output << "  " << fault;
        output << '\n';
    };
    line("Participant", "Habits", "Samples", "Posts", "Fault");
    Outcome sum;
    for (int participant = 1; participant <= study.participants; ++participant) {
        const Report& report = reports[static_cast<std::size_t>(participant - 1)];
        const std::string habits = inWords(habitsOf(participant, study.seed));
        if (!report) {
            line("participant " + std::to_string(participant), habits, "-", "-", "failed");
            continue;
        }
        line(report->identifier, habits, report->samples, report->posts, inWords(faultOf(participant)));
        sum.samples += report->samples;
        sum.posts += report->posts;
        sum.postedSamples += report->postedSamples;
    }
    line("Sum", "", sum.samples, sum.posts, "");
    if (sum.postedSamples > sum.samples)
        output << "The documents hold " << sum.postedSamples << " samples: " << sum.postedSamples - sum.samples
               << " are repeats.\n";
}

}  // namespace simulated_study
