// Plays a whole study with the client library: weeks of many participants in less than a minute.

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <exception>
#include <iostream>

#include "participant.h"
#include "participant_report.h"
#include "participant_table.h"
#include "study.h"

namespace simulated_study {

namespace {

double now() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

void showProgress(const std::vector<Report>& reports, int& finished) {
    constexpr int participantsOfALine = 4;
    if (++finished % participantsOfALine != 0 || isatty(STDOUT_FILENO) == 0) return;
    std::int64_t samples = 0;
    for (const Report& report : reports)
        samples += report ? report->samples : 0;
    std::cout << "  " << finished << " of " << reports.size() << " participants have finished, with " << samples
              << " samples\n"
              << std::flush;
}

int runStudy(const Study& study) {
    std::cout << "A simulated study: participants, sensors and time are simulated, everything else is real.\n"
              << study.participants << " participants take a sample of light every 10 minutes and of distances every 20"
              << " minutes, over " << study.days << " days.\n"
              << std::flush;
    int finished = 0;
    const auto reports =
        run(study, [&finished](const std::vector<Report>& reportsSoFar) { showProgress(reportsSoFar, finished); });
    std::cout << '\n';
    writeTable(std::cout, study, reports);
    std::cout << std::flush;
    for (std::size_t place = 0; place < reports.size(); ++place) {
        if (!reports[place]) std::cerr << "Participant " << place + 1 << " failed: " << reports[place].error() << '\n';
    }
    return std::ranges::all_of(reports, [](const Report& report) { return report.has_value(); }) ? 0 : 1;
}

int runParticipant(const Assignment& assignment) {
    Report report;
    try {
        report = takePart(assignment);
    } catch (const std::exception& error) {
        report = std::unexpected(error.what());
    }
    writeReport(std::cout, report);
    return report ? 0 : 1;
}

}  // namespace

}  // namespace simulated_study

int main(int argc, char** argv) {
    simulated_study::Study study{.collectorDirectory = {}, .ends = simulated_study::now()};
    simulated_study::Assignment assignment{.participant = 0, .collectorDirectory = {}, .dataDirectory = {}};
    CLI::App app("Plays a whole study with the client library. Participants, sensors and time are simulated.");
    app.add_option("--collector", study.collectorDirectory,
                   "Directory of a running collector, which takes the research backend's place (required)")
        ->option_text("DIRECTORY")
        ->required();
    app.add_option("--participants", study.participants, "Number of participants, 1 to 1000 (24)")
        ->option_text("NUMBER")
        ->check(CLI::Range(1, 1000));
    app.add_option("--days", study.days, "Length of the study, 1 to 366 days (21)")
        ->option_text("NUMBER")
        ->check(CLI::Range(1, 366));
    app.add_option("--seed", study.seed, "The same seed and end make the same samples (1)")->option_text("NUMBER");
    app.add_option("--end", study.ends, "The study's last moment, in seconds since 1970 (now)")->option_text("SECONDS");
    // How this program starts itself; an empty group hides them.
    app.add_option("--participant", assignment.participant)->group("");
    app.add_option("--data", assignment.dataDirectory)->group("");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        if (assignment.participant == 0) return simulated_study::runStudy(study);
        assignment.seed = study.seed;
        assignment.ends = study.ends;
        assignment.days = study.days;
        assignment.collectorDirectory = study.collectorDirectory;
        return simulated_study::runParticipant(assignment);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
