#include "participant_report.h"

#include <algorithm>
#include <ostream>
#include <sstream>
#include <utility>

namespace simulated_study {

namespace {

constexpr std::string_view success = "outcome ";
constexpr std::string_view failure = "failure ";

Report outcomeIn(const std::string& words) {
    Outcome outcome;
    std::istringstream values(words);
    if (values >> outcome.identifier >> outcome.samples >> outcome.posts >> outcome.postedSamples) return outcome;
    return std::unexpected("Its report cannot be read: " + words);
}

}  // namespace

void writeReport(std::ostream& output, const Report& report) {
    if (report) {
        output << success << report->identifier << ' ' << report->samples << ' ' << report->posts << ' '
               << report->postedSamples << '\n';
        return;
    }
    std::string reason = report.error();
    std::ranges::replace(reason, '\n', ' ');
    output << failure << reason << '\n';
}

Report readReport(const std::string& output, std::ostream& rest) {
    Report report = std::unexpected("It ended without a report.");
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with(success))
            report = outcomeIn(line.substr(success.size()));
        else if (line.starts_with(failure))
            report = std::unexpected(line.substr(failure.size()));
        else
            rest << line << '\n';
    }
    return report;
}

}  // namespace simulated_study
